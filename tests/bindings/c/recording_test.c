#include "harness.h"

/* A name of the test's own, beside where it runs. */
static const char* fresh(const char* name) {
  static const char* const endings[] = {"", "-wal", "-shm"};
  char path[300];
  for (int i = 0; i < 3; ++i) {
    snprintf(path, sizeof path, "%s%s", name, endings[i]);
    remove(path);
  }
  return name;
}

/* Both sinks, Init, a packet and a query. */
static void record_the_scene(const char* path) {
  const alg_calibration calibration = scene_calibration();
  alg_host* host = NULL;
  OK(alg_host_open(2, &host));
  OK(alg_host_record(host, path, NULL));
  OK(alg_host_init(host, &calibration, sizeof calibration));
  OK(alg_host_feed(host, scene_packet, sizeof scene_packet));
  alg_pose pose = {.size = sizeof pose};
  OK(alg_host_pose(host, 0, &pose));
  alg_record_status status = {.size = sizeof status};
  OK(alg_host_record_stop(host, &status));
  CHECK(status.closed == 1 && status.written == 5 && status.dropped == 0);
  OK(alg_host_close(host));
}

static alg_recording* opened(const char* path) {
  alg_recording* recording = NULL;
  OK(alg_recording_open(path, &recording));
  return recording;
}

static alg_call_info info_of(const alg_call* call) {
  alg_call_info info = {.size = sizeof info};
  OK(alg_call_info_of(call, &info));
  return info;
}

static void recording_holds_every_call_and_answer(void) {
  const char* path = fresh("c_every_call.algrec");
  record_the_scene(path);
  alg_recording* recording = opened(path);
  alg_recording_info facts = {.size = sizeof facts};
  OK(alg_recording_info_of(recording, &facts));
  CHECK(facts.calls == 5 && facts.complete == 1 && facts.product_type == 2);
  CHECK(facts.dropped_calls == 0);
  const char* text = NULL;
  OK(alg_recording_fact(recording, "library_version", &text));
  CHECK(strcmp(text, alg_version()) == 0);
  CHECK_STATUS(ALG_NONE, alg_recording_fact(recording, "no such fact", &text));
  alg_calibration calibration;
  const alg_calibration expected = scene_calibration();
  OK(alg_recording_calibration(recording, &calibration, sizeof calibration));
  CHECK(memcmp(&calibration, &expected, sizeof expected) == 0);

  static const int32_t operations[] = {ALG_CALL_SET_LOG_CALLBACK, ALG_CALL_SET_BLOCK_CALLBACK,
                                       ALG_CALL_INIT, ALG_CALL_INPUT, ALG_CALL_EVENT};
  const alg_call* call = NULL;
  const uint8_t* bytes = NULL;
  size_t size = 0;
  for (int i = 0; i < 5; ++i) {
    OK(alg_recording_next(recording, &call));
    const alg_call_info info = info_of(call);
    CHECK(info.index == i && info.operation == operations[i] && info.returned == 1);
    CHECK(info.parent == -1);
    CHECK(info.block_count == (info.operation == ALG_CALL_INPUT ? 1u : 0u));
    alg_block block = {.size = sizeof block};
    if (info.operation == ALG_CALL_INPUT) {
      OK(alg_call_payload(call, &bytes, &size));
      CHECK(size == sizeof scene_packet && memcmp(bytes, scene_packet, size) == 0);
      OK(alg_call_block(call, 0, &block));
      CHECK(block.points[0].id == 0 && is_scene_position(&block.points[0].x));
    }
    CHECK_STATUS(ALG_NONE, alg_call_block(call, info.block_count, &block));
  }
  alg_pose pose = {.size = sizeof pose};
  alg_heading heading = {.size = sizeof heading};
  OK(alg_call_pose(call, &pose));
  CHECK(pose.id == 0 && is_scene_position(pose.raw));
  CHECK_STATUS(ALG_NONE, alg_call_heading(call, &heading));
  OK(alg_call_answer(call, &bytes, &size));
  CHECK(size == 52 && memcmp(bytes + 4, pose.raw, sizeof pose.raw) == 0);
  CHECK_STATUS(ALG_NONE, alg_recording_next(recording, &call));
  CHECK_STATUS(ALG_NONE, alg_recording_next(recording, &call));
  OK(alg_recording_seek(recording, 3));
  OK(alg_recording_next(recording, &call));
  CHECK(info_of(call).index == 3);
  CHECK_STATUS(ALG_NONE, alg_call_pose(call, &pose));
  OK(alg_recording_close(recording));
}

static void messages_are_recorded(void) {
  const char* path = fresh("c_messages.algrec");
  alg_host* host = scene_host();
  OK(alg_host_record(host, path, NULL));
  uint8_t damaged[sizeof scene_packet];
  memcpy(damaged, scene_packet, sizeof damaged);
  damaged[26] ^= 1;
  OK(alg_host_feed(host, damaged, sizeof damaged));
  OK(alg_host_close(host)); /* ends the recording */
  alg_recording* recording = opened(path);
  const alg_call* call = NULL;
  uint32_t messages = 0;
  while (alg_recording_next(recording, &call) == ALG_OK) {
    const alg_call_info info = info_of(call);
    int32_t level = 0;
    const char* text = NULL;
    for (uint32_t i = 0; i < info.message_count; ++i, ++messages) {
      OK(alg_call_message(call, i, &level, &text));
      CHECK(level == 3 && strncmp(text, "alg: ", 5) == 0);
    }
    CHECK_STATUS(ALG_NONE, alg_call_message(call, info.message_count, &level, &text));
  }
  CHECK(messages > 0);
  OK(alg_recording_close(recording));
}

/* A recording of one process, to be replayed in another: see the next tests. */
static void record_for_the_replays(void) {
  record_the_scene(fresh("c_replayed.algrec"));
}

typedef struct counts {
  int calls, blocks;
} counts;

static void count_calls(const alg_call* recorded, const alg_call* replayed, void* user) {
  counts* c = user;
  CHECK(info_of(recorded).operation == info_of(replayed).operation);
  alg_block before = {.size = sizeof before}, now = {.size = sizeof now};
  ++c->calls;
  if (alg_call_block(replayed, 0, &now) != ALG_OK) return;
  OK(alg_call_block(recorded, 0, &before));
  CHECK(memcmp(&before, &now, sizeof now) == 0);
  ++c->blocks;
}

static void replay_in_a_fresh_process_gives_the_same_bytes(void) {
  alg_recording* recording = opened("c_replayed.algrec");
  counts c = {0, 0};
  const alg_replay_options options = {.size = sizeof options, .on_call = count_calls, .user = &c};
  alg_replay_result result = {.size = sizeof result};
  OK(alg_recording_replay(recording, &options, &result));
  CHECK(result.fresh == 1 && result.calls == 5 && result.differing == 0);
  CHECK(result.first_differing == -1 && c.calls == 5 && c.blocks == 1);
  const char* text = NULL;
  CHECK_STATUS(ALG_NONE, alg_recording_difference(recording, &text));

  OK(alg_recording_replay(recording, NULL, &result));
  CHECK(result.fresh == 0 && result.calls == 5);
  OK(alg_recording_close(recording));

  alg_host* host = scene_host(); /* the library has the host's callbacks again */
  OK(alg_host_feed(host, scene_packet, sizeof scene_packet));
}

static void replay_with_changes_names_the_first_difference(void) {
  alg_recording* recording = opened("c_replayed.algrec");
  alg_calibration wider = scene_calibration();
  wider.translation[0] = -200; /* everything is twice as far */
  const alg_replay_options options = {.size = sizeof options,
                                      .changes = ALG_CHANGE_FILTER_MODE,
                                      .filter_mode = 1,
                                      .calibration = &wider};
  alg_replay_result result = {.size = sizeof result};
  OK(alg_recording_replay(recording, &options, &result));
  CHECK(result.calls == 5 && result.differing == 2 && result.first_differing == 3);
  const char* text = NULL;
  OK(alg_recording_difference(recording, &text));
  CHECK(strstr(text, "call 3 (InputStream") == text && strstr(text, "recorded -50") != NULL);
  OK(alg_recording_close(recording));
}

static void replay_refuses_unknown_changes(void) {
  alg_recording* recording = opened("c_replayed.algrec");
  alg_replay_options options = {.size = sizeof options, .changes = 4};
  alg_replay_result result = {.size = sizeof result};
  CHECK_STATUS(ALG_BAD_ARGUMENT, alg_recording_replay(recording, &options, &result));
  options.changes = ALG_CHANGE_PRODUCT_TYPE;
  options.product_type = 3;
  CHECK_STATUS(ALG_BAD_ARGUMENT, alg_recording_replay(recording, &options, &result));
  options.size = 1;
  CHECK_STATUS(ALG_BAD_SIZE, alg_recording_replay(recording, &options, &result));
  CHECK_STATUS(ALG_NULL_ARGUMENT, alg_recording_replay(recording, NULL, NULL));
  OK(alg_recording_close(recording));
}

static void call_the_host(const alg_call* recorded, const alg_call* replayed, void* user) {
  alg_host* host = NULL;
  alg_replay_result result = {.size = sizeof result};
  CHECK(recorded != replayed);
  CHECK_STATUS(ALG_BUSY, alg_host_open(2, &host));
  CHECK_STATUS(ALG_BUSY, alg_recording_replay(user, NULL, &result));
}

static void replay_and_host_exclude_each_other(void) {
  alg_recording* recording = opened("c_replayed.algrec");
  alg_replay_result result = {.size = sizeof result};
  alg_host* host = NULL;
  OK(alg_host_open(2, &host));
  CHECK_STATUS(ALG_BUSY, alg_recording_replay(recording, NULL, &result));
  OK(alg_host_close(host));
  const alg_replay_options options = {
      .size = sizeof options, .on_call = call_the_host, .user = recording};
  OK(alg_recording_replay(recording, &options, &result));
  CHECK(result.fresh == 1);
  OK(alg_host_open(2, &host));
}

static void close_in_the_callback(const alg_call* recorded, const alg_call* replayed, void* user) {
  alg_recording** recording = user;
  CHECK(info_of(recorded).index == info_of(replayed).index);
  if (*recording == NULL) return;
  OK(alg_recording_close(*recording));
  *recording = NULL;
}

static void recording_closed_in_its_replay_lives_until_its_end(void) {
  alg_recording *recording = opened("c_replayed.algrec"), *closed = recording;
  const alg_replay_options options = {
      .size = sizeof options, .on_call = close_in_the_callback, .user = &recording};
  alg_replay_result result = {.size = sizeof result};
  OK(alg_recording_replay(recording, &options, &result));
  CHECK(result.calls == 5 && result.differing == 0);
  CHECK_STATUS(ALG_BAD_HANDLE, alg_recording_close(closed));
}

static void recording_that_begins_later_starts_with_the_set_up(void) {
  const char* path = fresh("c_later.algrec");
  alg_host* host = scene_host();
  OK(alg_host_filter_mode(host, 1));
  OK(alg_host_feed(host, scene_packet, sizeof scene_packet));
  alg_pose before = {.size = sizeof before}, after = {.size = sizeof after};
  OK(alg_host_pose(host, 0, &before));
  OK(alg_host_record(host, path, NULL));
  OK(alg_host_pose(host, 0, &after)); /* nothing was configured anew */
  CHECK(memcmp(&before, &after, sizeof before) == 0);
  OK(alg_host_record_stop(host, NULL));
  CHECK_STATUS(ALG_NONE, alg_host_record_stop(host, NULL));
  OK(alg_host_feed(host, scene_packet, sizeof scene_packet)); /* recorded by nobody */
  OK(alg_host_close(host));

  static const int32_t operations[] = {ALG_CALL_SET_LOG_CALLBACK, ALG_CALL_SET_BLOCK_CALLBACK,
                                       ALG_CALL_INIT, ALG_CALL_FILTER_MODE, ALG_CALL_EVENT};
  alg_recording* recording = opened(path);
  const alg_call* call = NULL;
  for (int i = 0; i < 5; ++i) {
    OK(alg_recording_next(recording, &call));
    CHECK(info_of(call).operation == operations[i]);
    if (i == 3) CHECK(info_of(call).mode == 1);
  }
  CHECK_STATUS(ALG_NONE, alg_recording_next(recording, &call));
  OK(alg_recording_close(recording));
}

static void recording_replaces_a_file_only_when_told(void) {
  const char* path = fresh("c_existing.algrec");
  record_the_scene(path);
  alg_host* host = scene_host();
  CHECK_STATUS(ALG_FILE, alg_host_record(host, path, NULL));
  CHECK(strncmp(alg_error_text(), path, strlen(path)) == 0);
  alg_record_status status = {.size = sizeof status};
  CHECK_STATUS(ALG_NONE, alg_host_record_status(host, &status));
  const alg_record_options options = {.size = sizeof options, .overwrite = 1};
  OK(alg_host_record(host, path, &options));
  CHECK_STATUS(ALG_BUSY, alg_host_record(host, fresh("c_second.algrec"), NULL));
  OK(alg_host_record_status(host, &status));
  CHECK(status.closed == 0);
  OK(alg_host_record_stop(host, NULL));
  CHECK_STATUS(ALG_FILE, alg_host_record(host, "no_such_folder/x.algrec", NULL));
}

static void what_is_no_recording_is_refused_with_its_name(void) {
  alg_recording* recording = NULL;
  CHECK_STATUS(ALG_FILE, alg_recording_open("no_such_file.algrec", &recording));
  CHECK(strncmp(alg_error_text(), "no_such_file.algrec: ", 21) == 0);
  FILE* file = fopen("c_text.algrec", "w");
  CHECK(file != NULL);
  fputs("a text of some length, and no database at all\n", file);
  fclose(file);
  CHECK_STATUS(ALG_FILE, alg_recording_open("c_text.algrec", &recording));
  CHECK(recording == NULL);
  CHECK_STATUS(ALG_NULL_ARGUMENT, alg_recording_open(NULL, &recording));
  CHECK_STATUS(ALG_NULL_ARGUMENT, alg_recording_open("c_text.algrec", NULL));
}

static void closed_recordings_are_found(void) {
  alg_recording* recording = opened("c_replayed.algrec");
  OK(alg_recording_close(recording));
  alg_recording* next = opened("c_replayed.algrec"); /* never gets the handle of the closed one */
  CHECK(next != recording);
  const alg_call* call = NULL;
  const char* text = NULL;
  alg_recording_info info = {.size = sizeof info};
  alg_calibration calibration;
  CHECK_STATUS(ALG_BAD_HANDLE, alg_recording_close(recording));
  CHECK_STATUS(ALG_BAD_HANDLE, alg_recording_next(recording, &call));
  CHECK_STATUS(ALG_BAD_HANDLE, alg_recording_seek(recording, 0));
  CHECK_STATUS(ALG_BAD_HANDLE, alg_recording_info_of(recording, &info));
  CHECK_STATUS(ALG_BAD_HANDLE, alg_recording_fact(recording, "clock", &text));
  CHECK_STATUS(ALG_BAD_HANDLE,
               alg_recording_calibration(recording, &calibration, sizeof calibration));
  CHECK_STATUS(ALG_BAD_HANDLE, alg_recording_difference(recording, &text));
  CHECK_STATUS(ALG_NULL_ARGUMENT, alg_recording_next(NULL, &call));
  CHECK_STATUS(ALG_NULL_ARGUMENT, alg_recording_next(next, NULL));
  CHECK_STATUS(ALG_NULL_ARGUMENT, alg_call_info_of(NULL, NULL));
  CHECK_STATUS(ALG_BAD_SIZE, alg_recording_calibration(next, &calibration, 919));
  info.size = sizeof info - 1;
  CHECK_STATUS(ALG_BAD_SIZE, alg_recording_info_of(next, &info));
  OK(alg_recording_close(next));
}

const test recording_tests[] = {
    {"recording_holds_every_call_and_answer", recording_holds_every_call_and_answer},
    {"messages_are_recorded", messages_are_recorded},
    {"record_for_the_replays", record_for_the_replays},
    {"replay_in_a_fresh_process_gives_the_same_bytes",
     replay_in_a_fresh_process_gives_the_same_bytes},
    {"replay_with_changes_names_the_first_difference",
     replay_with_changes_names_the_first_difference},
    {"replay_refuses_unknown_changes", replay_refuses_unknown_changes},
    {"replay_and_host_exclude_each_other", replay_and_host_exclude_each_other},
    {"recording_closed_in_its_replay_lives_until_its_end",
     recording_closed_in_its_replay_lives_until_its_end},
    {"recording_that_begins_later_starts_with_the_set_up",
     recording_that_begins_later_starts_with_the_set_up},
    {"recording_replaces_a_file_only_when_told", recording_replaces_a_file_only_when_told},
    {"what_is_no_recording_is_refused_with_its_name",
     what_is_no_recording_is_refused_with_its_name},
    {"closed_recordings_are_found", closed_recordings_are_found},
    {NULL, NULL}};
