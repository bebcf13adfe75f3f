"""The interface in C from Python's ctypes: the README's scene, and what the header promises.

usage: ctypes_test.py LIBRARY HEADER
"""

import ctypes
import re
import sys
import unittest
from ctypes import POINTER, Structure, byref, c_char_p, c_double, c_float, c_int32, c_size_t
from ctypes import c_uint32, c_uint64, c_void_p, sizeof

LIBRARY, HEADER = sys.argv.pop(1), sys.argv.pop(1)


class Point(Structure):
    _fields_ = [("id", c_int32), ("x", c_float), ("y", c_float), ("z", c_float),
                ("host_position", c_float * 3), ("host_orientation", c_float * 4),
                ("reserved", c_float), ("bearing", c_float)]


class Block(Structure):
    _fields_ = [("size", c_uint32), ("point_count", c_uint32), ("stamp", c_uint64),
                ("points", Point * 10)]


class Pose(Structure):
    _fields_ = [("size", c_uint32), ("id", c_int32), ("raw", c_float * 3), ("rate", c_float * 3),
                ("filtered", c_float * 3)]


OnBlock = ctypes.CFUNCTYPE(None, POINTER(Block), c_void_p)

PACKET = bytes.fromhex("aa55 f82a00 00 60113900 c0912100 f82a00 10 a05a3200 c0912100 0d")


def load():
    alg = ctypes.CDLL(LIBRARY)
    alg.alg_host_open.argtypes = [c_int32, POINTER(c_void_p)]
    alg.alg_host_on_block.argtypes = [c_void_p, OnBlock, c_void_p]
    alg.alg_host_init.argtypes = [c_void_p, c_void_p, c_size_t]
    alg.alg_host_filter_mode.argtypes = [c_void_p, c_int32]
    alg.alg_host_feed.argtypes = [c_void_p, c_char_p, c_size_t]
    alg.alg_host_pose.argtypes = [c_void_p, c_int32, POINTER(Pose)]
    alg.alg_host_close.argtypes = [c_void_p]
    alg.alg_status_text.restype = alg.alg_error_text.restype = c_char_p
    return alg


def scene_calibration():
    numbers = (c_double * 115)()
    left, right, rotation, translation, fundamental = 1, 18, 35, 44, 47
    for camera in (left, right):
        numbers[camera] = numbers[camera + 4] = 400
        numbers[camera + 2], numbers[camera + 5], numbers[camera + 8] = 320, 240, 1
    for i in (0, 4, 8):
        numbers[rotation + i] = 1
    numbers[translation] = -100
    numbers[fundamental + 5], numbers[fundamental + 7] = 1, -1
    return numbers


class CtypesTest(unittest.TestCase):
    def test_readme_scene_gives_its_numbers(self):
        alg = load()
        seen = []
        # ctypes keeps no reference: the name does, as long as the host is open.
        on_block = OnBlock(lambda block, _: seen.append(
            [(p.id, round(p.x, 1), round(p.y, 1), round(p.z, 1))
             for p in block.contents.points if p.id != -1]))
        calibration = scene_calibration()
        host = c_void_p()
        self.assertEqual(alg.alg_host_open(2, byref(host)), 0)
        self.assertEqual(alg.alg_host_on_block(host, on_block, None), 0)
        self.assertEqual(alg.alg_host_init(host, calibration, sizeof(calibration)), 0)
        self.assertEqual(alg.alg_host_filter_mode(host, 0), 0)
        self.assertEqual(alg.alg_host_feed(host, PACKET, len(PACKET)), 0)
        pose = Pose(size=sizeof(Pose))
        self.assertEqual(alg.alg_host_pose(host, 0, byref(pose)), 0)
        self.assertEqual(alg.alg_host_close(host), 0)
        self.assertEqual(seen, [[(0, -50.0, 100.0, -995.8)]])
        self.assertEqual([round(v, 1) for v in pose.filtered], [-50.0, 100.0, -995.8])
        self.assertEqual(alg.alg_host_feed(host, PACKET, len(PACKET)), 5)
        self.assertEqual(alg.alg_status_text(5), b"the handle is closed, or was never open")
        self.assertIn(b"expected an open one", alg.alg_error_text())

    def test_every_function_of_the_header_is_in_the_library(self):
        with open(HEADER, encoding="ascii") as file:
            names = re.findall(r"^ALG_C_API [^;]*?\b(alg_\w+)\(", file.read(), re.MULTILINE)
        self.assertGreater(len(names), 30)
        alg = load()
        for name in names:
            self.assertTrue(hasattr(alg, name), name)


if __name__ == "__main__":
    unittest.main()
