/* A complete host in C: one marker, seen by both cameras, becomes a position in millimetres. */
#include <alg_factory_c.h>

#include <stdio.h>

static void on_block(const alg_block* block, void* user) {
  for (uint32_t k = 0; k < block->point_count; ++k) {
    const alg_point* p = &block->points[k];
    if (p->id == -1) continue;
    printf("block: object %d at %.1f %.1f %.1f mm\n", (int)p->id, p->x, p->y, p->z);
    ++*(int*)user;
  }
}

int main(void) {
  /* Two equal fisheye cameras that look the same way, the left one 100 mm to the left. */
  static alg_calibration calibration;
  calibration.left_intrinsics[0] = calibration.left_intrinsics[4] = 400;
  calibration.right_intrinsics[0] = calibration.right_intrinsics[4] = 400;
  calibration.left_intrinsics[2] = calibration.right_intrinsics[2] = 320;
  calibration.left_intrinsics[5] = calibration.right_intrinsics[5] = 240;
  calibration.left_intrinsics[8] = calibration.right_intrinsics[8] = 1;
  calibration.rotation[0] = calibration.rotation[4] = calibration.rotation[8] = 1;
  calibration.translation[0] = -100;
  calibration.fundamental[5] = 1,
  calibration.fundamental[7] = -1; /* a partner is in the same row */

  const uint8_t packet[] = {
      0xAA, 0x55, /* start, then per blob: weight, camera and id, weight * x, weight * y */
      0xF8, 0x2A, 0, 0x00, 0x60, 0x11, 0x39, 0, 0xC0, 0x91, 0x21, 0, /* left: (340, 200) */
      0xF8, 0x2A, 0, 0x10, 0xA0, 0x5A, 0x32, 0, 0xC0, 0x91, 0x21, 0, /* right: (300, 200) */
      0x0D}; /* check byte: the sum of all bytes before it */

  int seen = 0;
  alg_host* host = NULL;
  alg_status s = alg_host_open(2, &host);
  if (s == ALG_OK) s = alg_host_on_block(host, on_block, &seen);
  if (s == ALG_OK) s = alg_host_init(host, &calibration, sizeof calibration);
  if (s == ALG_OK) s = alg_host_filter_mode(host, 0);
  if (s == ALG_OK) s = alg_host_feed(host, packet, sizeof packet);
  alg_pose pose = {.size = sizeof pose};
  if (s == ALG_OK) s = alg_host_pose(host, 0, &pose);
  if (s != ALG_OK) {
    fprintf(stderr, "%s: %s\n", alg_status_text(s), alg_error_text());
    return 1;
  }
  printf("query: object %d at %.1f %.1f %.1f mm\n", (int)pose.id, pose.filtered[0],
         pose.filtered[1], pose.filtered[2]);
  alg_host_close(host);
  return seen == 1 ? 0 : 1;
}
