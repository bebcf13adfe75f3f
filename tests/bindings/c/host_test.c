#include "harness.h"

typedef struct seen {
  alg_host* host;
  int blocks;
  alg_block last;
  int messages;
  int level;
  char text[200];
  alg_status statuses[16];
} seen;

static void keep_block(const alg_block* block, void* user) {
  seen* s = user;
  ++s->blocks;
  CHECK(block->size == sizeof *block);
  s->last = *block;
}

static void keep_message(int32_t level, const char* message, void* user) {
  seen* s = user;
  ++s->messages;
  s->level = level;
  snprintf(s->text, sizeof s->text, "%s", message);
}

static void readme_scene_gives_its_numbers(void) {
  seen s = {0};
  alg_host* host = scene_host();
  OK(alg_host_on_block(host, keep_block, &s));
  OK(alg_host_filter_mode(host, 0));
  OK(alg_host_feed(host, scene_packet, sizeof scene_packet));
  CHECK(s.blocks == 1 && s.last.point_count == ALG_POINTS && s.last.stamp == 0);
  CHECK(s.last.points[0].id == 0 && is_scene_position(&s.last.points[0].x));
  for (int k = 1; k < ALG_POINTS; ++k) CHECK(s.last.points[k].id == -1);

  alg_pose pose = {.size = sizeof pose};
  OK(alg_host_pose(host, 0, &pose));
  CHECK(pose.size == sizeof pose && pose.id == 0);
  CHECK(is_scene_position(pose.raw) && is_scene_position(pose.filtered));
  OK(alg_host_close(host));
}

static void stamp_comes_back_in_the_block(void) {
  seen s = {0};
  alg_host* host = scene_host();
  OK(alg_host_on_block(host, keep_block, &s));
  OK(alg_host_feed_stamped(host, 0x89ABCDEFu, scene_packet, sizeof scene_packet));
  CHECK(s.blocks == 1 && s.last.stamp == 0x89ABCDEFu && is_scene_position(&s.last.points[0].x));
  uint8_t with_stamp[4 + sizeof scene_packet] = {0x04, 0x03, 0x02, 0x01};
  memcpy(with_stamp + 4, scene_packet, sizeof scene_packet);
  OK(alg_host_input(host, 2, with_stamp, sizeof with_stamp));
  CHECK(s.blocks == 2 && s.last.stamp == 0x01020304u);
}

static void pose_of_an_inertial_record_travels_with_the_block(void) {
  seen s = {0};
  alg_host* host = scene_host();
  OK(alg_host_on_block(host, keep_block, &s));
  alg_inertial inertial;
  memset(&inertial, 0, sizeof inertial);
  inertial.q[3] = 1;
  inertial.p[1] = 7;
  CHECK(sizeof inertial == 56);
  OK(alg_host_input(host, 4, &inertial, sizeof inertial));
  OK(alg_host_feed(host, scene_packet, sizeof scene_packet));
  CHECK(s.last.points[1].host_position[1] == 7 && s.last.points[1].host_orientation[3] == 1);
}

static void message_of_a_damaged_packet_arrives(void) {
  seen s = {0};
  alg_host* host = scene_host();
  OK(alg_host_on_log(host, keep_message, &s));
  uint8_t damaged[sizeof scene_packet];
  memcpy(damaged, scene_packet, sizeof damaged);
  damaged[26] ^= 1; /* the check byte */
  OK(alg_host_feed(host, damaged, sizeof damaged));
  CHECK(s.messages > 0 && s.level == 3 && strncmp(s.text, "alg: ", 5) == 0);
  const int so_far = s.messages;
  OK(alg_host_on_log(host, NULL, NULL));
  OK(alg_host_feed(host, damaged, sizeof damaged));
  CHECK(s.messages == so_far);
}

static void heading_exchange_returns_what_was_passed(void) {
  alg_host* host = NULL;
  const alg_calibration calibration = scene_calibration();
  OK(alg_host_open(1, &host));
  OK(alg_host_init(host, &calibration, sizeof calibration));
  /* A turn of 90 degrees about y: x = z = 0, y = w = sqrt(1/2). */
  const float q[4] = {0, 0.70710678f, 0, 0.70710678f};
  alg_heading heading = {.size = sizeof heading};
  OK(alg_host_heading(host, q, UINT64_C(0x123456789ABCDEF0), &heading));
  CHECK(heading.value == UINT64_C(0x123456789ABCDEF0) && heading.new_offset == 0);
  CHECK(memcmp(heading.orientation, q, sizeof q) == 0);
}

static void fixed_code_and_version_are_the_librarys(void) {
  alg_host* host = NULL;
  int32_t code = 0;
  OK(alg_host_open(0, &host));
  OK(alg_host_fixed_code(host, &code));
  CHECK(code == 800);
  CHECK(strcmp(alg_version(), ALG_C_VERSION) == 0);
}

static void process_has_one_host(void) {
  alg_host *first = NULL, *second = NULL;
  OK(alg_host_open(2, &first));
  CHECK_STATUS(ALG_OTHER_SETTINGS, alg_host_open(1, &second));
  CHECK(second == NULL);
  CHECK(strstr(alg_error_text(), "expected product type 2") != NULL);
  OK(alg_host_open(2, &second));
  CHECK(second == first);
  OK(alg_host_close(first));
  int32_t code = 0;
  OK(alg_host_fixed_code(second, &code)); /* opened twice, closed once */
  OK(alg_host_close(second));
  CHECK_STATUS(ALG_BAD_HANDLE, alg_host_fixed_code(second, &code));
  OK(alg_host_open(1, &second)); /* nobody has it open any more */
}

static void product_types_are_0_to_2(void) {
  alg_host* host = NULL;
  CHECK_STATUS(ALG_BAD_ARGUMENT, alg_host_open(3, &host));
  CHECK_STATUS(ALG_BAD_ARGUMENT, alg_host_open(-1, &host));
  CHECK(host == NULL);
}

static void null_pointers_are_refused(void) {
  alg_host* host = scene_host();
  const float q[4] = {0, 0, 0, 1};
  alg_pose pose = {.size = sizeof pose};
  CHECK_STATUS(ALG_NULL_ARGUMENT, alg_host_open(2, NULL));
  CHECK_STATUS(ALG_NULL_ARGUMENT, alg_host_close(NULL));
  CHECK_STATUS(ALG_NULL_ARGUMENT, alg_host_on_block(NULL, keep_block, NULL));
  CHECK_STATUS(ALG_NULL_ARGUMENT, alg_host_on_log(NULL, keep_message, NULL));
  CHECK_STATUS(ALG_NULL_ARGUMENT, alg_host_init(host, NULL, sizeof(alg_calibration)));
  CHECK_STATUS(ALG_NULL_ARGUMENT, alg_host_feed(host, NULL, 1));
  CHECK_STATUS(ALG_NULL_ARGUMENT, alg_host_feed_stamped(host, 0, NULL, 1));
  CHECK_STATUS(ALG_NULL_ARGUMENT, alg_host_input(host, 4, NULL, 56));
  CHECK_STATUS(ALG_NULL_ARGUMENT, alg_host_pose(host, 0, NULL));
  CHECK_STATUS(ALG_NULL_ARGUMENT, alg_host_pose(NULL, 0, &pose));
  CHECK_STATUS(ALG_NULL_ARGUMENT, alg_host_heading(host, q, 0, NULL));
  CHECK_STATUS(ALG_NULL_ARGUMENT, alg_host_fixed_code(host, NULL));
  CHECK(strcmp(alg_error_text(), "code: expected a pointer, found null") == 0);
  OK(alg_host_feed(host, NULL, 0)); /* an empty packet */
}

static void wrong_sizes_are_refused(void) {
  alg_host* host = scene_host();
  const alg_calibration calibration = scene_calibration();
  CHECK_STATUS(ALG_BAD_SIZE, alg_host_init(host, &calibration, sizeof calibration - 1));
  CHECK_STATUS(ALG_BAD_SIZE, alg_host_init(host, &calibration, sizeof calibration + 1));
  uint8_t record[55] = {0};
  CHECK_STATUS(ALG_BAD_SIZE, alg_host_input(host, 1, record, sizeof record));
  CHECK_STATUS(ALG_BAD_SIZE, alg_host_input(host, 3, record, sizeof record));
  CHECK_STATUS(ALG_BAD_SIZE, alg_host_input(host, 2, record, 3));
  CHECK_STATUS(ALG_BAD_SIZE, alg_host_input(host, 5, record, 3));
  CHECK_STATUS(ALG_BAD_SIZE, alg_host_feed(host, record, (size_t)-1));
  CHECK_STATUS(ALG_BAD_ARGUMENT, alg_host_input(host, 6, record, sizeof record));
  CHECK_STATUS(ALG_BAD_ARGUMENT, alg_host_input(host, -1, record, sizeof record));
  alg_pose pose = {0};
  CHECK_STATUS(ALG_BAD_SIZE, alg_host_pose(host, 0, &pose));
  pose.size = sizeof pose;
  CHECK_STATUS(ALG_BAD_ARGUMENT, alg_host_pose(host, 6, &pose));
  CHECK_STATUS(ALG_BAD_ARGUMENT, alg_host_pose(host, -1, &pose));
}

static void record_of_a_later_version_is_filled_as_far_as_known(void) {
  alg_host* host = scene_host();
  OK(alg_host_feed(host, scene_packet, sizeof scene_packet));
  struct {
    alg_pose pose;
    uint8_t later[20];
  } grown;
  memset(&grown, 0x5A, sizeof grown);
  grown.pose.size = sizeof grown;
  OK(alg_host_pose(host, 0, &grown.pose));
  CHECK(grown.pose.size == sizeof grown.pose && is_scene_position(grown.pose.raw));
  for (size_t i = 0; i < sizeof grown.later; ++i) CHECK(grown.later[i] == 0x5A);
}

static void host_without_a_calibration_is_not_ready(void) {
  alg_host* host = NULL;
  alg_pose pose = {.size = sizeof pose};
  OK(alg_host_open(2, &host));
  CHECK_STATUS(ALG_NOT_READY, alg_host_feed(host, scene_packet, sizeof scene_packet));
  CHECK_STATUS(ALG_NOT_READY, alg_host_pose(host, 0, &pose));
  OK(alg_host_close(host));
  host = scene_host();
  OK(alg_host_close(host));
  OK(alg_host_open(2, &host)); /* a configuration ends with the last close */
  CHECK_STATUS(ALG_NOT_READY, alg_host_feed(host, scene_packet, sizeof scene_packet));
}

static void closed_and_foreign_handles_are_found(void) {
  alg_host* host = scene_host();
  alg_pose pose = {.size = sizeof pose};
  int32_t elsewhere = 0;
  CHECK_STATUS(ALG_BAD_HANDLE, alg_host_pose((alg_host*)(void*)&elsewhere, 0, &pose));
  OK(alg_host_close(host));
  CHECK_STATUS(ALG_BAD_HANDLE, alg_host_feed(host, scene_packet, sizeof scene_packet));
  CHECK_STATUS(ALG_BAD_HANDLE, alg_host_pose(host, 0, &pose));
  CHECK_STATUS(ALG_BAD_HANDLE, alg_host_on_block(host, NULL, NULL));
  CHECK_STATUS(ALG_BAD_HANDLE, alg_host_close(host));
}

static void call_everything(const alg_block* block, void* user) {
  seen* s = user;
  const alg_calibration calibration = scene_calibration();
  alg_status* status = s->statuses;
  alg_pose pose = {.size = sizeof pose};
  ++s->blocks;
  *status++ = alg_host_close(s->host);
  *status++ = alg_host_feed(s->host, scene_packet, sizeof scene_packet);
  *status++ = alg_host_feed_stamped(s->host, 1, scene_packet, sizeof scene_packet);
  *status++ = alg_host_input(s->host, 0, scene_packet, sizeof scene_packet);
  *status++ = alg_host_init(s->host, &calibration, sizeof calibration);
  *status++ = alg_host_filter_mode(s->host, 0);
  *status++ = alg_host_on_block(s->host, NULL, NULL);
  *status++ = alg_host_on_log(s->host, NULL, NULL);
  *status++ = alg_host_pose(s->host, 0, &pose);
  CHECK(is_scene_position(pose.raw) && block->points[0].id == 0);
}

static void callback_may_query_and_nothing_else(void) {
  seen s = {0};
  s.host = scene_host();
  OK(alg_host_on_block(s.host, call_everything, &s));
  OK(alg_host_feed(s.host, scene_packet, sizeof scene_packet));
  for (int i = 0; i < 8; ++i) CHECK_STATUS(ALG_BUSY, s.statuses[i]);
  CHECK_STATUS(ALG_OK, s.statuses[8]);
  OK(alg_host_feed(s.host, scene_packet, sizeof scene_packet));
  CHECK(s.blocks == 2);
  OK(alg_host_close(s.host));
}

static void closed_host_calls_nobody(void) {
  seen s = {0};
  alg_host* host = scene_host();
  OK(alg_host_on_block(host, keep_block, &s));
  OK(alg_host_close(host));
  host = scene_host();
  OK(alg_host_feed(host, scene_packet, sizeof scene_packet));
  CHECK(s.blocks == 0);
}

static void every_status_has_a_text(void) {
  for (alg_status s = ALG_OK; s <= ALG_INTERNAL; ++s) {
    CHECK(strcmp(alg_status_text(s), "unknown status") != 0);
    for (alg_status other = ALG_OK; other < s; ++other)
      CHECK(strcmp(alg_status_text(s), alg_status_text(other)) != 0);
  }
  CHECK(strcmp(alg_status_text(-1), "unknown status") == 0);
  CHECK(strcmp(alg_error_text(), "") == 0);
}

const test host_tests[] = {
    {"readme_scene_gives_its_numbers", readme_scene_gives_its_numbers},
    {"stamp_comes_back_in_the_block", stamp_comes_back_in_the_block},
    {"pose_of_an_inertial_record_travels_with_the_block",
     pose_of_an_inertial_record_travels_with_the_block},
    {"message_of_a_damaged_packet_arrives", message_of_a_damaged_packet_arrives},
    {"heading_exchange_returns_what_was_passed", heading_exchange_returns_what_was_passed},
    {"fixed_code_and_version_are_the_librarys", fixed_code_and_version_are_the_librarys},
    {"process_has_one_host", process_has_one_host},
    {"product_types_are_0_to_2", product_types_are_0_to_2},
    {"null_pointers_are_refused", null_pointers_are_refused},
    {"wrong_sizes_are_refused", wrong_sizes_are_refused},
    {"record_of_a_later_version_is_filled_as_far_as_known",
     record_of_a_later_version_is_filled_as_far_as_known},
    {"host_without_a_calibration_is_not_ready", host_without_a_calibration_is_not_ready},
    {"closed_and_foreign_handles_are_found", closed_and_foreign_handles_are_found},
    {"callback_may_query_and_nothing_else", callback_may_query_and_nothing_else},
    {"closed_host_calls_nobody", closed_host_calls_nobody},
    {"every_status_has_a_text", every_status_has_a_text},
    {NULL, NULL}};
