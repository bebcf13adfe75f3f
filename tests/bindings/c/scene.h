#ifndef SCENE_H
#define SCENE_H

#include <alg_factory_c.h>

#include <string.h>

/* The scene of the README: one marker, seen by both cameras. By hand: the blobs lie (+-0.05, -0.1)
 * from the centres, r = 0.1118 = theta, tan(theta) / r = 1.00419. With a baseline of 100 mm the
 * depth is 100 / (2 * 0.05 * 1.00419) = 995.8, x is -50.0, y -100.0, and y and z are mirrored. */
static const uint8_t scene_packet[27] = {0xAA, 0x55, 0xF8, 0x2A, 0,    0x00, 0x60, 0x11, 0x39,
                                         0,    0xC0, 0x91, 0x21, 0,    0xF8, 0x2A, 0,    0x10,
                                         0xA0, 0x5A, 0x32, 0,    0xC0, 0x91, 0x21, 0,    0x0D};

static inline alg_calibration scene_calibration(void) {
  alg_calibration c;
  memset(&c, 0, sizeof c);
  c.left_intrinsics[0] = c.left_intrinsics[4] = 400;
  c.right_intrinsics[0] = c.right_intrinsics[4] = 400;
  c.left_intrinsics[2] = c.right_intrinsics[2] = 320;
  c.left_intrinsics[5] = c.right_intrinsics[5] = 240;
  c.left_intrinsics[8] = c.right_intrinsics[8] = 1;
  c.rotation[0] = c.rotation[4] = c.rotation[8] = 1;
  c.translation[0] = -100;
  c.fundamental[5] = 1;
  c.fundamental[7] = -1;
  return c;
}

#endif
