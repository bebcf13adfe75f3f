"""Lines that users type, for mypy: each must be typed as it stands."""
import numpy as np

import alg_factory as af


def main() -> None:
    r = af.Recording("walk.algrec")
    duration: float = r.duration
    p = r.positions(object=0)
    lengths = np.linalg.norm(p.camera, axis=1)
    part: af.Recording = r[12.0:25.0]  # type: ignore  # older mypy wants whole numbers in slices
    counts = part.funnel().to_dict()
    text: str = r.explain(time=12.3).text
    assert af.verify("walk.algrec")
    new: af.Recording = af.replay("walk.algrec", filter_mode=1, calibration="healed.json")
    af.simulate("s.algrec", product_type=2, seconds=20, noise=0.05, seed=3)
    af.report("walk.algrec", "walk.html")
    body = af.Body.learn(r, ids=[0, 1, 2, 3])
    poses = body.track(r, smooth=True)
    tipped: af.Body = body.with_tip(body.pivot("spot.algrec").tip)
    moved: list[int] = tipped.check(r).moved
    print(poses["qw"], body.findings, moved)
    af.simulate("b.algrec", trajectory="hand.tum", body=af.Body({0: (0, 0, 0)}), emission=60)
    host = af.Host(product_type=2, calibration=af.Calibration.load("healed.json"))
    host.on_block = lambda block: print(block["records"]["x"][0])
    host.filter_mode = 0
    host.feed(b"packet", stamp=3)
    print(host.pose(0)["raw"], duration, lengths, counts, text, new.tracks(object=0, smooth=True))
