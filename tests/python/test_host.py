"""The process's pipeline from Python: numbers, callbacks, refusals, threads."""


def test_the_scene_of_the_readme_gives_its_numbers(in_process):
    # algtrack's README prints -50.0 100.0 -995.8 for these bytes.
    assert in_process("""
        host = af.Host(2, scene)
        seen = []
        host.on_block = lambda block: seen.append(block.copy())
        host.filter_mode = 0
        host.feed(packet)
        record = seen[0]["records"][0]
        print(record["id"], *(f"{record[axis]:.1f}" for axis in "xyz"))
        pose = host.pose(0)
        print(pose.id, *(f"{v:.1f}" for v in pose["filtered"]), host.fixed_code)
        """) == "0 -50.0 100.0 -995.8\n0 -50.0 100.0 -995.8 800\n"


def test_the_packet_of_the_readme_is_the_one_that_the_scene_builds(in_process):
    assert in_process("print(packet.hex())").strip() == (
        "aa55f82a0000601139 00c0912100f82a0010a05a3200c09121000d".replace(" ", ""))


def test_a_block_is_a_view_of_the_librarys_memory_that_cannot_be_written(in_process):
    assert in_process("""
        host = af.Host(2, scene)
        def on_block(block):
            print(block.flags.owndata, block.flags.writeable, block.dtype == af.RESULT_BLOCK,
                  block["records"].shape, block.dtype.itemsize)
            print(block.__array_interface__["data"][0] == last[0] if last else "first")
            last[:] = [block.__array_interface__["data"][0]]
        last = []
        host.on_block = on_block
        host.feed(packet)
        host.feed(packet)
        """).splitlines() == ["False False True (10,) 528", "first",
                              "False False True (10,) 528", "True"]


def test_a_block_that_is_kept_is_refused_in_the_feeding_call(in_process):
    assert in_process("""
        host = af.Host(2, scene)
        for keep in (lambda block: block, lambda block: block["records"]["x"]):
            kept = []
            host.on_block = lambda block: kept.append(keep(block))
            try:
                host.feed(packet)
            except BufferError as error:
                print("copy()" in str(error))
        host.on_block = lambda block: kept.append(block["records"]["x"][0])
        host.feed(packet)
        """) == "True\nTrue\n"


def test_what_a_callback_raises_surfaces_in_the_feeding_call_and_the_next_call_works(in_process):
    assert in_process("""
        host = af.Host(2, scene)
        def on_block(block):
            raise KeyError("mine")
        host.on_block = on_block
        for _ in range(2):
            try:
                host.feed(packet)
            except KeyError as error:
                print(error)
        host.on_block = None
        host.feed(packet)
        print(host.pose(0).id)
        """) == "'mine'\n'mine'\n0\n"


def test_messages_come_with_their_level_and_a_damaged_packet_still_delivers(in_process):
    assert in_process("""
        host = af.Host(2, scene)
        host.on_log = lambda level, text: print(level, text)
        blocks = []
        host.on_block = lambda block: blocks.append(int(block["stamp"]))
        host.feed(packet[:-1] + b"\\0")
        print(len(blocks))
        """).splitlines()[-1] == "1"


def test_a_stamped_packet_has_its_stamp_in_the_block(in_process):
    assert in_process("""
        host = af.Host(1, scene)
        host.on_block = lambda block: print(int(block["stamp"]))
        host.feed(packet, stamp=123456)
        host.feed(packet, 2**32 - 1)
        for stamp in (-1, 2**32):
            try:
                host.feed(packet, stamp=stamp)
            except ValueError as error:
                print(error)
        """).splitlines() == [
            "123456", "4294967295",
            "stamp: expected microseconds from 0 to 4294967295, found -1",
            "stamp: expected microseconds from 0 to 4294967295, found 4294967296"]


def test_a_second_host_with_other_settings_is_refused_with_the_reason(in_process):
    assert in_process("""
        first = af.Host(2, scene)
        same = af.Host(2, scene)
        for product_type, calibration in ((1, scene), (2, scene.with_changes(
                translation=[-101, 0, 0]))):
            try:
                af.Host(product_type, calibration)
            except af.PipelineInUse as error:
                print(error)
        del first, same
        gc.collect()
        try:
            af.Host(1, scene)
        except af.PipelineInUse as error:
            print("still")
        """).splitlines() == [
            "this process's pipeline is set up for product type 2, found 1: the library has one "
            "pipeline per process. Use another process, or Host.init of the host that is there, "
            "which keeps histories and filters",
            "this process's pipeline is set up for product type 2 with another calibration: the "
            "library has one pipeline per process. Use another process, or Host.init of the host "
            "that is there, which keeps histories and filters", "still"]


def test_a_block_goes_to_the_host_that_fed_its_packet(in_process):
    assert in_process("""
        a, b = af.Host(2, scene), af.Host(2, scene)
        a.on_block = lambda block: print("a")
        b.on_block = lambda block: print("b")
        b.feed(packet); a.feed(packet)
        """) == "b\na\n"


def test_a_callback_may_query_and_feed(in_process):
    assert in_process("""
        host = af.Host(2, scene)
        depth = []
        def on_block(block):
            depth.append(1)
            print(host.pose(0).id)
            if len(depth) < 3:
                host.feed(packet)
        host.on_block = on_block
        host.feed(packet)
        """) == "0\n0\n0\n"


def test_threads_feed_and_ask_at_once_while_others_run(in_process):
    # Everybody gets what he fed: 4 threads, 200 packets each, every block to its own thread.
    assert in_process("""
        host = af.Host(2, scene)
        counts = {}
        def on_block(block):
            me = threading.current_thread()
            counts[me] = counts.get(me, 0) + int(block["records"]["id"][0] == 0)
        host.on_block = on_block
        done = []
        def feed():
            for _ in range(200):
                host.feed(packet)
            done.append(counts[threading.current_thread()])
        def ask():
            for _ in range(500):
                host.pose(0)
        threads = [threading.Thread(target=f) for f in (feed, feed, feed, feed, ask, ask)]
        for thread in threads: thread.start()
        for thread in threads: thread.join()
        print(sorted(done))
        """) == "[200, 200, 200, 200]\n"


def test_the_interpreter_runs_on_while_a_thread_waits_for_the_pipeline(in_process):
    # The thread's callback waits for the main thread, which must be able to run: if a thread kept the
    # interpreter lock while it waited for the pipeline, this would stand still.
    assert in_process("""
        host = af.Host(2, scene)
        inside, go = threading.Event(), threading.Event()
        def on_block(block):
            inside.set()
            assert go.wait(30)
        host.on_block = on_block
        feeder = threading.Thread(target=host.feed, args=(packet,))
        feeder.start()
        assert inside.wait(30)
        asker = threading.Thread(target=lambda: print(host.pose(0).id))
        asker.start()
        print("main")
        go.set()
        feeder.join(30); asker.join(30)
        """) == "main\n0\n"


def test_wrong_arguments_are_refused_before_the_library_sees_them(in_process):
    assert in_process("""
        host = af.Host(2, scene)
        def refused(call, *types):
            try:
                call()
            except types as error:
                print(error)
        refused(lambda: host.input(3, b"short"), ValueError)
        refused(lambda: host.input(9, b""), ValueError)
        refused(lambda: host.pose(6), ValueError)
        refused(lambda: af.Host(7, scene), ValueError)
        refused(lambda: af.Host(2, b"x" * 919), af.FileError)
        refused(lambda: host.feed(3), TypeError)
        refused(lambda: setattr(host, "on_block", 3), TypeError)
        refused(lambda: host.input(2, b"\\0" * 4 + packet), af.Refused)
        """).splitlines()[:4] == [
            "stream type 3: expected at least 56 bytes, found 5",
            "expected a stream type from 0 to 5, found 9",
            "expected an object from 0 to 5, found 6",
            "expected a product type 0, 1 or 2, found 7"]


def test_a_host_that_its_callback_holds_is_collected(in_process):
    assert in_process("""
        import weakref
        class Probe: pass
        def use():
            host, probe = af.Host(2, scene), Probe()
            host.on_block = lambda block: (host, probe)
            return weakref.ref(probe)
        probe = use()
        gc.collect()
        print(probe() is None)
        """) == "True\n"
