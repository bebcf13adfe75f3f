// A complete host in C#, through the interface in C: one marker, seen by both cameras, becomes a
// position in millimetres. Runs under Mono and .NET.
using System;
using System.Globalization;
using System.Runtime.InteropServices;

// The records of alg_factory_c.h, field by field at their places.
[StructLayout(LayoutKind.Explicit, Size = 52)]
struct AlgPoint {
  [FieldOffset(0)] public int Id;
  [FieldOffset(4)] public float X;
  [FieldOffset(8)] public float Y;
  [FieldOffset(12)] public float Z;
  [FieldOffset(48)] public float Bearing;
}

// The head of a block; its points follow.
[StructLayout(LayoutKind.Explicit, Size = 16)]
struct AlgBlock {
  public const int Head = 16;
  [FieldOffset(0)] public uint Size;
  [FieldOffset(4)] public uint PointCount;
  [FieldOffset(8)] public ulong Stamp;
}

[StructLayout(LayoutKind.Explicit, Size = 44)]
struct AlgPose {
  [FieldOffset(0)] public uint Size;
  [FieldOffset(4)] public int Id;
  [FieldOffset(8)] public float RawX;
  [FieldOffset(12)] public float RawY;
  [FieldOffset(16)] public float RawZ;
  [FieldOffset(20)] public float RateX;
  [FieldOffset(24)] public float RateY;
  [FieldOffset(28)] public float RateZ;
  [FieldOffset(32)] public float FilteredX;
  [FieldOffset(36)] public float FilteredY;
  [FieldOffset(40)] public float FilteredZ;
}

static class Alg {
  const string Library = "alg_factory_c";
  const CallingConvention C = CallingConvention.Cdecl;

  [UnmanagedFunctionPointer(C)]
  public delegate void OnBlock(IntPtr block, IntPtr user);

  [DllImport(Library, CallingConvention = C)]
  public static extern int alg_host_open(int productType, out IntPtr host);
  [DllImport(Library, CallingConvention = C)]
  public static extern int alg_host_close(IntPtr host);
  [DllImport(Library, CallingConvention = C)]
  public static extern int alg_host_on_block(IntPtr host, OnBlock function, IntPtr user);
  [DllImport(Library, CallingConvention = C)]
  public static extern int alg_host_init(IntPtr host, double[] calibration, UIntPtr size);
  [DllImport(Library, CallingConvention = C)]
  public static extern int alg_host_filter_mode(IntPtr host, int mode);
  [DllImport(Library, CallingConvention = C)]
  public static extern int alg_host_feed(IntPtr host, byte[] packet, UIntPtr size);
  [DllImport(Library, CallingConvention = C)]
  public static extern int alg_host_pose(IntPtr host, int number, ref AlgPose pose);
  [DllImport(Library, CallingConvention = C)]
  static extern IntPtr alg_status_text(int status);
  [DllImport(Library, CallingConvention = C)]
  static extern IntPtr alg_error_text();

  public static void Check(int status) {
    if (status == 0) return;
    throw new Exception(Marshal.PtrToStringAnsi(alg_status_text(status)) + ": " +
                        Marshal.PtrToStringAnsi(alg_error_text()));
  }
}

class Host {
  // The library keeps the function's address, which the garbage collector does not see: the delegate
  // lives in a field, as long as the host is open.
  static readonly Alg.OnBlock KeptOnBlock = OnBlock;
  static int seen;

  // An exception must not leave a callback: there is C on its way.
  static void OnBlock(IntPtr block, IntPtr user) {
    var head = (AlgBlock)Marshal.PtrToStructure(block, typeof(AlgBlock));
    for (int k = 0; k < head.PointCount; ++k) {
      var place = IntPtr.Add(block, AlgBlock.Head + k * Marshal.SizeOf(typeof(AlgPoint)));
      var p = (AlgPoint)Marshal.PtrToStructure(place, typeof(AlgPoint));
      if (p.Id == -1) continue;
      Print("block", p.Id, p.X, p.Y, p.Z);
      ++seen;
    }
  }

  static void Print(string what, int id, float x, float y, float z) {
    Console.WriteLine(string.Format(CultureInfo.InvariantCulture,
                                    "{0}: object {1} at {2:F1} {3:F1} {4:F1} mm", what, id, x, y, z));
  }

  static int Main() {
    // Two equal fisheye cameras that look the same way, the left one 100 mm to the left.
    const int left = 1, right = 18, rotation = 35, translation = 44, fundamental = 47;
    var calibration = new double[115];
    foreach (int camera in new[] {left, right}) {
      calibration[camera + 0] = calibration[camera + 4] = 400;
      calibration[camera + 2] = 320;
      calibration[camera + 5] = 240;
      calibration[camera + 8] = 1;
    }
    calibration[rotation + 0] = calibration[rotation + 4] = calibration[rotation + 8] = 1;
    calibration[translation] = -100;
    calibration[fundamental + 5] = 1;  // a point's partner lies in the same row
    calibration[fundamental + 7] = -1;

    byte[] packet = {
        0xAA, 0x55,  // start, then per blob: weight, camera and id, weight * x, weight * y
        0xF8, 0x2A, 0, 0x00, 0x60, 0x11, 0x39, 0, 0xC0, 0x91, 0x21, 0,  // left: (340, 200)
        0xF8, 0x2A, 0, 0x10, 0xA0, 0x5A, 0x32, 0, 0xC0, 0x91, 0x21, 0,  // right: (300, 200)
        0x0D};  // check byte: the sum of all bytes before it

    IntPtr host;
    Alg.Check(Alg.alg_host_open(2, out host));
    Alg.Check(Alg.alg_host_on_block(host, KeptOnBlock, IntPtr.Zero));
    Alg.Check(Alg.alg_host_init(host, calibration, (UIntPtr)(calibration.Length * sizeof(double))));
    Alg.Check(Alg.alg_host_filter_mode(host, 0));
    GC.Collect();  // as it may at any moment
    GC.WaitForPendingFinalizers();
    Alg.Check(Alg.alg_host_feed(host, packet, (UIntPtr)packet.Length));

    var pose = new AlgPose {Size = (uint)Marshal.SizeOf(typeof(AlgPose))};
    Alg.Check(Alg.alg_host_pose(host, 0, ref pose));
    Print("query", pose.Id, pose.FilteredX, pose.FilteredY, pose.FilteredZ);
    Alg.Check(Alg.alg_host_close(host));
    return seen == 1 ? 0 : 1;
  }
}
