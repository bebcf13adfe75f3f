"""The process's pipeline."""
from . import _core
from .calibration import Calibration, as_calibration


class Host(_core.Host):
    """The library as a host has it: packets in, blocks and poses out.

    The library has one pipeline per process. A second Host with the same product type and
    calibration joins it: what is fed through either moves the one pipeline, and a block goes to the
    `on_block` of the host that fed its packet. A second Host with other settings raises
    `PipelineInUse`, also when the first one is gone: the pipeline stays as long as the process.

    Parameters
    ----------
    product_type : int
        0, 1 or 2: objects 0 to 2, 0 to 2 (object 2 with two markers), 0 to 5.
    calibration : Calibration, path, or 920 bytes
        What the library is set up with. The unit of its translation is that of all positions.

    Threads: any thread may call; calls wait for each other. The interpreter lock is free while the
    library works and is taken for callbacks, which run on the thread that feeds. What a callback
    raises, the feeding call raises when the library is done with the packet. A callback may call
    the host; it must not wait for another thread that does.

    Attributes
    ----------
    on_block : function or None
        Called as on_block(block) for every packet that reaches the end of the pipeline. `block` is
        a numpy record array without dimensions, of dtype `RESULT_BLOCK`: block["stamp"]
        (microseconds, 0 for plain packets), block["records"] (10 records of `TRACKED_POINT`; id -1
        = no object). It is a read-only view of the library's own memory, valid inside the call:
        keep block.copy(). A block, or a part of it, that is kept raises BufferError in the feeding
        call.
    on_log : function or None
        Called as on_log(level, text): level 3 from the packet decoder, 4 from everything else.
    filter_mode : int
        -1 off (as at first), 1 large measurement noise, any other value small measurement noise.
        Setting it builds all pose filters anew, except -1.
    product_type : int
        As set up; read only.
    fixed_code : int
        800.
    """

    def __init__(self, product_type, calibration):
        super().__init__(product_type, as_calibration(calibration).to_bytes())

    def init(self, product_type, calibration):
        """Sets the pipeline up anew. Histories, ids and filters survive.

        Raises ValueError for a product type other than 0, 1 and 2.
        """
        super().init(product_type, as_calibration(calibration).to_bytes())

    def feed(self, packet, stamp=None):
        """Feeds a device packet.

        packet : bytes, or any contiguous buffer; of more than 512 bytes the rest is not read.
        stamp : int, microseconds from 0 to 2**32 - 1; with it the packet goes in as stream type 2,
            which feeds the pose filters of product types 0 and 1; without it as stream type 0,
            which feeds those of product type 2.

        A packet with errors is reported to `on_log`, and delivers what could be decoded. An empty
        one delivers nothing. Raises Refused with the library's message, and whatever a callback
        raised.
        """
        super().feed(packet, stamp)

    def input(self, stream_type, payload):
        """Feeds a payload of any stream type.

        0 a packet; 1 an INERTIAL_RECORD of which p is used; 2 a 4-byte stamp and a packet; 3 and 4
        an INERTIAL_RECORD of device 0 and 1; 5 a side hint, 4 bytes. Raises ValueError for another
        type and for fewer bytes than the library reads.
        """
        super().input(stream_type, payload)

    def pose(self, object, stamp=None):
        """Asks for an object's pose: a record of dtype POSE_ANSWER with id (-1 = no object; the
        other fields are then left over), raw, filtered and rate, (3,) float32 each, as delivered.

        stamp : microseconds, for object 2 of product types 0 and 1: the filter's position is moved
            on to it where it lies up to 0.1 s ahead. Without it the filter's position as it is.

        Queries change state: an object that vanishes goes on being answered for 90 of them.
        """
        return super().pose(object, stamp)

    def heading(self, orientation, value=0):
        """Compares the two-point object's optical heading (product type 1) with an orientation,
        a quaternion x, y, z, w. A record of dtype HEADING_ANSWER: yaw, negated_corrected_yaw
        (degrees), status (1 = new offset), score (0 to 1), value.
        """
        return super().heading(list(orientation), value)

    def __repr__(self):
        return f"<alg_factory.Host product type {self.product_type}>"
