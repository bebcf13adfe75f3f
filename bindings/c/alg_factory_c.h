/* Public: installed for hosts.
 *
 * The tracking library in plain C, for hosts in C and in every language that can call C: one host,
 * recordings, calibrations. The header is C11 and C++17 and includes nothing but fixed-size
 * integers.
 *
 * One pipeline. A process has one pipeline, whoever uses it. alg_host_open gives the one host of
 * the process; opened again with the same product type it gives the same host once more, with
 * another one it answers ALG_OTHER_SETTINGS.
 *
 * Status. Every function that can fail returns an alg_status. ALG_OK is 0. alg_status_text says
 * what a status means, alg_error_text what went wrong in this thread's last failed call: which
 * file, what was expected, what was found. A function that fails changes nothing but what its
 * comment says, and writes nothing to its outputs. No exception leaves a function.
 *
 * Handles. A handle is valid from its open to its close. A closed one, and one that never was, is
 * answered ALG_BAD_HANDLE and never followed. Null is answered ALG_NULL_ARGUMENT.
 *
 * Sizes. A record that is filled for the caller begins with `size`: set it to sizeof of the record
 * before the call. Later versions of this header add fields at the end of records; what is filled
 * is what both sides know, and `size` says afterwards how many bytes that is. Smaller than in the
 * first version is answered ALG_BAD_SIZE. alg_calibration and alg_inertial are what devices and
 * files hold: they never grow.
 *
 * Threads. "Alone" at a function: it must not overlap any other call with the same handle but
 * alg_host_pose and alg_host_pose_at. Where it does, or is called from inside a callback, it
 * answers ALG_BUSY. "Any thread": whenever one likes, from inside callbacks too.
 *
 * Units and frames. Positions are in the unit of the calibration's translation, in the right
 * camera's frame with y and z negated: x right, y up, z towards the viewer. Rates are per second,
 * stamps microseconds, angles degrees, quaternions x, y, z, w. Texts are UTF-8, and end with a
 * zero.
 */
#ifndef ALG_FACTORY_C_H
#define ALG_FACTORY_C_H

#include <stddef.h>
#include <stdint.h>

#if defined(_WIN32) && defined(ALG_FACTORY_C_BUILDING)
#define ALG_C_API __declspec(dllexport)
#elif defined(_WIN32)
#define ALG_C_API __declspec(dllimport)
#else
#define ALG_C_API __attribute__((visibility("default")))
#endif

/** Of this header. The major number changes when a host compiled with it can no longer run. */
#define ALG_C_VERSION "1.0.0"

#ifdef __cplusplus
extern "C" {
#endif

/** What became of a call: one of the values below. */
typedef int32_t alg_status;

/** Values of alg_status. Later versions may add some. */
enum {
  ALG_OK = 0,             /**< done */
  ALG_NONE = 1,           /**< there is none, or no further one; not an error */
  ALG_NULL_ARGUMENT = 2,  /**< a pointer that must not be null was null */
  ALG_BAD_ARGUMENT = 3,   /**< a value outside its range */
  ALG_BAD_SIZE = 4,       /**< a size that does not fit what it is the size of */
  ALG_BAD_HANDLE = 5,     /**< a handle that was closed or never opened */
  ALG_BUSY = 6,           /**< called from inside a callback, or beside a call that must be alone */
  ALG_OTHER_SETTINGS = 7, /**< the process's one host is open with another product type */
  ALG_NOT_READY = 8,      /**< alg_host_init first */
  ALG_REFUSED = 9,        /**< the library refused it; what on_log got may say why */
  ALG_CALLBACK_FAILED = 10, /**< a callback threw; the library is in order */
  ALG_NO_MEMORY = 11,       /**< memory ran out */
  ALG_FILE = 12, /**< a file cannot be read or written, or does not hold what it should */
  ALG_NOT_AVAILABLE =
      13,           /**< this build cannot do it; on Windows: recordings and calibration files */
  ALG_INTERNAL = 14 /**< a mistake of ours */
};

/** What a status means, in a few words. Never null. Any thread. */
ALG_C_API const char* alg_status_text(alg_status status);

/**
 * What went wrong in this thread's last call that returned something else than ALG_OK and ALG_NONE,
 * in one line; empty before the first one. Valid until the thread's next failed call. Any thread.
 */
ALG_C_API const char* alg_error_text(void);

/** Version of the tracking library that the process has loaded: "1.0.0". Any thread. */
ALG_C_API const char* alg_version(void);

/* ---- records ---- */

/** One object of a block. */
typedef struct alg_point {
  int32_t id;                /**< object id; -1 = no object, and the rest is left over */
  float x;                   /**< position */
  float y;                   /**< position */
  float z;                   /**< position */
  float host_position[3];    /**< points 0 and 1: p of stream type 3 or 4, as sent */
  float host_orientation[4]; /**< points 0 and 1: q of stream type 3 or 4, as sent */
  float reserved;            /**< written by nobody */
  float bearing;             /**< degrees, 0 to 90; point 2 of product type 1 only */
} alg_point;

enum { ALG_POINTS = 10 }; /**< points of every block, used or not */

/** What came of a packet. */
typedef struct alg_block {
  uint32_t size;                /**< sizeof(alg_block) */
  uint32_t point_count;         /**< ALG_POINTS */
  uint64_t stamp;               /**< of a stamped packet, microseconds; else 0 */
  alg_point points[ALG_POINTS]; /**< product types 0 and 2: one per object id; type 1: 0 to 2 */
} alg_block;

/** Where an object is now. */
typedef struct alg_pose {
  uint32_t size;     /**< sizeof(alg_pose) */
  int32_t id;        /**< object id; -1 = no object, and the rest is left over */
  float raw[3];      /**< x, y, z in the latest block */
  float rate[3];     /**< units per second; zero when unfiltered */
  float filtered[3]; /**< x, y, z; equals raw when unfiltered */
} alg_pose;

/** The optical heading of product type 1's object 2, against an orientation of the host's. */
typedef struct alg_heading {
  uint32_t size;               /**< sizeof(alg_heading) */
  int32_t new_offset;          /**< 1 = a new offset since the last answer, 0 = none */
  uint64_t value;              /**< as passed */
  float orientation[4];        /**< as passed */
  float yaw;                   /**< degrees; of the orientation */
  float negated_corrected_yaw; /**< degrees; minus (yaw - yaw offset) */
  float score;                 /**< quality of the offset: 1 = best, 0 = worst */
  float reserved;              /**< 0 */
} alg_heading;

/** Payload of stream types 1, 3 and 4: 56 bytes, little-endian. It never grows. */
typedef struct alg_inertial {
  uint8_t unused1[8];       /**< not used */
  float q[4];               /**< orientation, quaternion x, y, z, w */
  float p[3];               /**< position; stream type 1 uses nothing else */
  int16_t accelerometer[3]; /**< x, y, z counts of 1/2048 g */
  int16_t gyroscope[3];     /**< x, y, z counts, 16.4 per degree per second */
  uint8_t unused2[8];       /**< not used */
} alg_inertial;

/** Calibration of the two cameras: 115 doubles, matrices row by row. It never grows. */
typedef struct alg_calibration {
  double lead;                /**< carried, not used */
  double left_intrinsics[9];  /**< K_L = fx s cx, 0 fy cy, 0 0 1; pixels */
  double left_distortion[8];  /**< k1 to k4 of the equidistant fisheye model, four not used */
  double right_intrinsics[9]; /**< K_R */
  double right_distortion[8]; /**< as left_distortion */
  double rotation[9];         /**< R: a direction in the left frame to the right frame */
  double translation[3];      /**< T: the left camera's centre in the right camera's frame */
  double fundamental[9];      /**< F: left point p gives the line F p in the right image */
  double tail[59];            /**< carried, not used */
} alg_calibration;

/* ---- the host ---- */

/** The process's one host. */
typedef struct alg_host alg_host;

/**
 * Called for every packet that reaches the end of the pipeline, on the thread that feeds and before
 * alg_host_feed returns. alg_host_pose may be called from inside, everything else of the host is
 * answered ALG_BUSY. Do not wait for another thread that queries, and do not leave by longjmp.
 * @param block  valid during the call
 * @param user   as given with the function
 */
typedef void (*alg_block_fn)(const alg_block* block, void* user);

/**
 * Called for every message, on the thread that called.
 * @param level    3 from the packet decoder, 4 from everything else
 * @param message  begins with "alg: " and ends with a newline; valid during the call
 * @param user     as given with the function
 */
typedef void (*alg_log_fn)(int32_t level, const char* message, void* user);

/**
 * Opens the process's host. What is opened so often is closed as often. Any thread.
 * @param product_type  0, 1 or 2: the objects that are tracked, used by alg_host_init
 * @param host          gets the handle
 * @return ALG_OTHER_SETTINGS if it is open with another product type, ALG_BAD_ARGUMENT for one that
 *         there is not, ALG_BUSY beside a replay
 */
ALG_C_API alg_status alg_host_open(int32_t product_type, alg_host** host);

/**
 * Closes the host. The last close ends a recording and forgets the callbacks; the pipeline goes on
 * existing, with its histories and filters, for whoever opens a host next. Alone.
 * @return ALG_BUSY from inside a callback: the host is then still open. ALG_FILE if it was
 * recording and the file is not whole; the host is closed.
 */
ALG_C_API alg_status alg_host_close(alg_host* host);

/** Sets who gets blocks; null: nobody. Both pointers are kept until the next call or close. Alone.
 */
ALG_C_API alg_status alg_host_on_block(alg_host* host, alg_block_fn function, void* user);

/** Sets who gets messages; null: nobody. Both pointers are kept until the next call or close.
 * Alone. */
ALG_C_API alg_status alg_host_on_log(alg_host* host, alg_log_fn function, void* user);

/**
 * Configures the pipeline. May be called again; histories, ids and filters survive. Alone.
 * @param host         from alg_host_open
 * @param calibration  an alg_calibration, or the bytes of a file that holds one; read during the
 * call
 * @param size         920
 */
ALG_C_API alg_status alg_host_init(alg_host* host, const void* calibration, size_t size);

/**
 * Feeds a device packet (stream type 0), which runs the pipeline. It feeds the marker filters.
 * Alone.
 * @param host    from alg_host_open
 * @param packet  read during the call; null only with size 0
 * @param size    bytes; of more than 512 the rest is not read. An empty packet delivers nothing.
 */
ALG_C_API alg_status alg_host_feed(alg_host* host, const void* packet, size_t size);

/**
 * Feeds a device packet with its stamp (stream type 2). It feeds the head filters. Alone.
 * @param host    from alg_host_open
 * @param stamp   microseconds
 * @param packet  as alg_host_feed
 * @param size    as alg_host_feed
 */
ALG_C_API alg_status alg_host_feed_stamped(alg_host* host, uint32_t stamp, const void* packet,
                                           size_t size);

/**
 * Feeds a payload of any stream type, as the device driver has it. Alone.
 *
 * | stream type | payload |
 * |---|---|
 * | 0 | a device packet |
 * | 1 | an alg_inertial of which only p is used |
 * | 2 | a 4-byte little-endian stamp, then a device packet |
 * | 3, 4 | an alg_inertial of device 0 or 1 |
 * | 5 | a 32-bit side hint: 1 first point of the pair, 2 second, else by distance |
 *
 * @return ALG_BAD_ARGUMENT for another stream type, ALG_BAD_SIZE for fewer bytes than it reads
 */
ALG_C_API alg_status alg_host_input(alg_host* host, int32_t stream_type, const void* payload,
                                    size_t size);

/**
 * Switches the smoothing of answers; -1 off, 0 fast, 1 smooth. Every mode but -1 builds all filters
 * anew. Alone.
 */
ALG_C_API alg_status alg_host_filter_mode(alg_host* host, int32_t mode);

/**
 * Where an object is now. It counts: an object that has vanished goes on being answered for 90
 * queries where the library bridges, so a session repeats only with its queries. Any thread. It may
 * wait until a block that is being published, callbacks included, is published.
 * @param host    from alg_host_open
 * @param object  0 to 5. Object 2 of product types 0 and 1 is answered from its filter as it is.
 * @param pose    size set; filled, also where its id is -1
 */
ALG_C_API alg_status alg_host_pose(alg_host* host, int32_t object, alg_pose* pose);

/**
 * The same at a time, which object 2 of product types 0 and 1 is extrapolated to; for all others
 * the stamp means nothing. Any thread.
 * @param host    from alg_host_open
 * @param object  as alg_host_pose
 * @param stamp   microseconds, on the clock of alg_host_feed_stamped; up to 0.1 s after the latest
 * @param pose    as alg_host_pose
 */
ALG_C_API alg_status alg_host_pose_at(alg_host* host, int32_t object, uint64_t stamp,
                                      alg_pose* pose);

/**
 * Exchanges an orientation for the two-point object's heading (product type 1). A new offset is
 * reported once. Not beside any other call, but it may be called from inside on_block.
 * @param host         from alg_host_open
 * @param orientation  quaternion x, y, z, w of the object, from the host
 * @param value        comes back in the answer
 * @param heading      size set
 */
ALG_C_API alg_status alg_host_heading(alg_host* host, const float orientation[4], uint64_t value,
                                      alg_heading* heading);

/** The library's fixed code: 800. Any thread. */
ALG_C_API alg_status alg_host_fixed_code(alg_host* host, int32_t* code);

/* ---- recording a host ---- */

/** How a host is recorded. */
typedef struct alg_record_options {
  uint32_t size;     /**< sizeof(alg_record_options) */
  int32_t overwrite; /**< not 0: replace an existing file */
} alg_record_options;

/** What became of the recorded calls. */
typedef struct alg_record_status {
  uint32_t size;   /**< sizeof(alg_record_status) */
  int32_t closed;  /**< 1: everything is on the disk and the file is complete */
  int64_t written; /**< calls that are in the file */
  int64_t dropped; /**< calls that are not: the disk was too slow, full or failed */
} alg_record_status;

/**
 * Records every call, answer, block and message from here on; a thread of the recorder's writes.
 * A recording that begins before the first alg_host_init of the process replays to the same bytes.
 * One that begins later starts with the calls that set the host up, once more, and not with what
 * the pipeline remembered. Alone.
 * @param host     from alg_host_open
 * @param path     of the file that is made
 * @param options  null = as it comes
 * @return ALG_FILE if it cannot be made, exists, or has another recorder; ALG_BUSY if the host is
 *         being recorded
 */
ALG_C_API alg_status alg_host_record(alg_host* host, const char* path,
                                     const alg_record_options* options);

/**
 * Ends the recording and waits until its file is complete. Alone.
 * @param host    from alg_host_open
 * @param status  null, or size set; filled also with ALG_FILE
 * @return ALG_NONE if the host is not being recorded, ALG_FILE if the file is not whole
 */
ALG_C_API alg_status alg_host_record_stop(alg_host* host, alg_record_status* status);

/** What became of the recorded calls so far; ALG_NONE if the host is not being recorded. Alone. */
ALG_C_API alg_status alg_host_record_status(alg_host* host, alg_record_status* status);

/* ---- recordings ---- */

/** An open recording. Its functions are called by one thread at a time. */
typedef struct alg_recording alg_recording;

/** A call in a recording, or in a replay. */
typedef struct alg_call alg_call;

/** Facts about a recording. */
typedef struct alg_recording_info {
  uint32_t size;          /**< sizeof(alg_recording_info) */
  int32_t format_version; /**< of the file */
  int32_t complete;       /**< 1: closed in order; else it was cut off, or goes on */
  int32_t product_type;   /**< of the first Init; -1 = none */
  int64_t calls;          /**< in the file */
  int64_t dropped_calls;  /**< that its recorder could not write */
} alg_recording_info;

/** The operations of a call. */
enum {
  ALG_CALL_INIT = 0,
  ALG_CALL_INPUT = 1,
  ALG_CALL_SET_BLOCK_CALLBACK = 2,
  ALG_CALL_SET_LOG_CALLBACK = 3,
  ALG_CALL_FILTER_MODE = 4,
  ALG_CALL_FIXED_CODE = 5,
  ALG_CALL_EVENT = 6
};

/** Numbers of a call; one that its operation does not have is 0. */
typedef struct alg_call_info {
  uint32_t size;          /**< sizeof(alg_call_info) */
  int32_t operation;      /**< ALG_CALL_INIT and so on */
  int64_t index;          /**< order of entry, from 0; a gap = dropped calls */
  int64_t parent;         /**< the call in whose callback it was made; -1 = none */
  int64_t start_ns;       /**< at entry, on the recording's clock */
  int64_t duration_ns;    /**< the host's callbacks included; -1 = not measured */
  int32_t type;           /**< product type, stream type or event */
  int32_t mode;           /**< filter mode */
  int32_t length;         /**< of the payload, as the host passed it */
  int32_t returned;       /**< 0 false, 1 true, or the fixed code; -1 = ended with an exception */
  uint32_t block_count;   /**< blocks that were delivered during it */
  uint32_t message_count; /**< messages during it */
} alg_call_info;

/**
 * Opens a recording: a finished one, one that was cut off, or one that still goes on. Nothing on
 * the disk is changed. Any thread.
 * @return ALG_FILE if it is none or damaged
 */
ALG_C_API alg_status alg_recording_open(const char* path, alg_recording** recording);

/** Closes it. Its calls and texts are no longer valid. */
ALG_C_API alg_status alg_recording_close(alg_recording* recording);

/**
 * Facts.
 * @param recording  from alg_recording_open
 * @param info       size set
 */
ALG_C_API alg_status alg_recording_info_of(alg_recording* recording, alg_recording_info* info);

/**
 * A text of the file's table of facts, such as "library_version" or "clock".
 * @param recording  from alg_recording_open
 * @param key        name of the fact
 * @param text       gets it, valid until the recording is closed
 * @return ALG_NONE if there is no such
 */
ALG_C_API alg_status alg_recording_fact(alg_recording* recording, const char* key,
                                        const char** text);

/**
 * The calibration of the first Init.
 * @param recording    from alg_recording_open
 * @param calibration  gets it
 * @param size         sizeof(alg_calibration)
 * @return ALG_NONE if there is none
 */
ALG_C_API alg_status alg_recording_calibration(alg_recording* recording,
                                               alg_calibration* calibration, size_t size);

/**
 * The next call, in order of entry; the first after open.
 * @param recording  from alg_recording_open
 * @param call       gets it, valid until the next alg_recording_next, seek, replay or close
 * @return ALG_NONE behind the last one, ALG_FILE where the file is damaged
 */
ALG_C_API alg_status alg_recording_next(alg_recording* recording, const alg_call** call);

/** The next call will be the first one with this index or a higher one. */
ALG_C_API alg_status alg_recording_seek(alg_recording* recording, int64_t index);

/**
 * Numbers.
 * @param call  of a recording or a replay
 * @param info  size set
 */
ALG_C_API alg_status alg_call_info_of(const alg_call* call, alg_call_info* info);

/** The bytes that the library read, valid as long as the call. Empty where it reads none. */
ALG_C_API alg_status alg_call_payload(const alg_call* call, const uint8_t** bytes, size_t* size);

/** The bytes that the library answered, valid as long as the call. Empty where there are none. */
ALG_C_API alg_status alg_call_answer(const alg_call* call, const uint8_t** bytes, size_t* size);

/** The answer to a pose event. @return ALG_NONE if the call has none */
ALG_C_API alg_status alg_call_pose(const alg_call* call, alg_pose* pose);

/** The answer to a heading exchange. @return ALG_NONE if the call has none */
ALG_C_API alg_status alg_call_heading(const alg_call* call, alg_heading* heading);

/** A block that was delivered during the call. @return ALG_NONE if there are not so many */
ALG_C_API alg_status alg_call_block(const alg_call* call, uint32_t number, alg_block* block);

/**
 * A message during the call.
 * @param call    of a recording or a replay
 * @param number  from 0
 * @param level   gets its level
 * @param text    gets its text, valid as long as the call
 * @return ALG_NONE if there are not so many
 */
ALG_C_API alg_status alg_call_message(const alg_call* call, uint32_t number, int32_t* level,
                                      const char** text);

/* ---- replaying ---- */

/**
 * Called after every call of a replay.
 * @param recorded  the call as it is in the file
 * @param replayed  the same with what came of it now; both valid during the call
 * @param user      as given with the function
 */
typedef void (*alg_replay_fn)(const alg_call* recorded, const alg_call* replayed, void* user);

/** Bits of alg_replay_options::changes. */
enum { ALG_CHANGE_PRODUCT_TYPE = 1, ALG_CHANGE_FILTER_MODE = 2 };

/** What a replay does otherwise than the recorded host. */
typedef struct alg_replay_options {
  uint32_t size;        /**< sizeof(alg_replay_options) */
  uint32_t changes;     /**< which of the next two are used */
  int32_t product_type; /**< of every Init */
  int32_t filter_mode;  /**< of every filter mode; without any, set after every Init */
  const alg_calibration* calibration; /**< of every Init; null = the recorded one */
  alg_replay_fn on_call;              /**< null = nobody */
  void* user;                         /**< handed to on_call */
} alg_replay_options;

/** What a replay found. */
typedef struct alg_replay_result {
  uint32_t size; /**< sizeof(alg_replay_result) */
  int32_t fresh; /**< 1: nothing was fed in this process before, so the bytes must be the same */
  int64_t calls; /**< that were made again */
  int64_t differing;       /**< of which the outcome was not the same to the last byte */
  int64_t first_differing; /**< index of the first one; -1 = none */
} alg_replay_result;

/**
 * Makes the recorded calls again, all of them, with the process's pipeline, and compares what comes
 * of them: returned values, messages, blocks, answers. For the same bytes the process must not have
 * used the pipeline before: replay one recording in a process. Alone, and not while a host is open.
 * @param recording  from alg_recording_open
 * @param options    null = nothing is changed
 * @param result     size set
 * @return ALG_OK also where calls differ; ALG_BUSY while a host is open or another replay runs
 */
ALG_C_API alg_status alg_recording_replay(alg_recording* recording,
                                          const alg_replay_options* options,
                                          alg_replay_result* result);

/**
 * The first difference that the latest replay found, in one line.
 * @param recording  from alg_recording_open
 * @param text       gets it, valid until the next replay or close
 * @return ALG_NONE if there was none
 */
ALG_C_API alg_status alg_recording_difference(alg_recording* recording, const char** text);

/* ---- calibrations ---- */

/** How a calibration file is read. */
typedef struct alg_calibration_options {
  uint32_t size;           /**< sizeof(alg_calibration_options) */
  uint32_t reserved;       /**< 0 */
  const char* second_path; /**< of OpenCV's two files the other one; null = one file */
  const char* unit; /**< of the file's translation: mm, cm, m or in; null = as the file says */
} alg_calibration_options;

/**
 * Reads a calibration: a Kalibr camera chain, OpenCV's files, our JSON or the 920 bytes themselves.
 * The translation is converted to millimetres. Any thread.
 * @param path         of the file
 * @param options      null = one file, in its own unit
 * @param calibration  filled
 * @param size         sizeof(alg_calibration)
 * @return ALG_FILE if it cannot be read, or is one that the library cannot work with
 */
ALG_C_API alg_status alg_calibration_load(const char* path, const alg_calibration_options* options,
                                          alg_calibration* calibration, size_t size);

/** What seems wrong with a calibration. */
typedef struct alg_findings alg_findings;

/**
 * Looks for what is usually wrong with calibrations. Any thread.
 * @param calibration  translation in millimetres
 * @param size         sizeof(alg_calibration)
 * @param recording    path of a recording that it should explain; null = none
 * @param findings     gets the list, to be closed
 * @return ALG_OK also where something seems wrong, ALG_FILE for numbers that no calibration has and
 *         for a recording that cannot be read
 */
ALG_C_API alg_status alg_calibration_check(const alg_calibration* calibration, size_t size,
                                           const char* recording, alg_findings** findings);

/** How many there are; 0: nothing seems wrong. */
ALG_C_API alg_status alg_findings_count(alg_findings* findings, uint32_t* count);

/**
 * One of them.
 * @param findings  from alg_calibration_check
 * @param number    from 0
 * @param code      gets a name for programs: "translation-inverted"; may be null
 * @param text      gets a sentence for people; may be null. Both valid until the list is closed.
 * @return ALG_NONE if there are not so many
 */
ALG_C_API alg_status alg_findings_at(alg_findings* findings, uint32_t number, const char** code,
                                     const char** text);

/** Closes the list. */
ALG_C_API alg_status alg_findings_close(alg_findings* findings);

#ifdef __cplusplus
}
#endif

#endif
