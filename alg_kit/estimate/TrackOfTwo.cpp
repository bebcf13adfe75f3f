// The track of the two-point object: one filter for the middle of its markers, one for the offset
// from there to the second.
#include <alg_kit/estimate/Information.h>
#include <alg_kit/estimate/Track.h>

#include <cmath>

namespace estimate {

using Eigen::Vector3d;

/// A frame's light of both markers, by marker.
struct Track::LightOfTwo {
  Vector3d at[2];  ///< expected
  Sighting sighting[2];
  std::optional<PositionInformation> information[2];  ///< of all of the sighting; then of what fits
};

Outcome Track::followTwo(const ObjectCandidates& candidates) {
  LightOfTwo light;
  find(light, candidates);
  Outcome outcome = admit(light, centre_, offset_);
  // The mixture may be surer of itself than the model that is right from this frame on.
  if (outcome.refusal == Refusal::kOffTrack)
    outcome = admit(light, state_.centre.widest(), state_.offset.widest());
  if (outcome.refusal != Refusal::kNone) return outcome;

  // Where each camera saw another marker, an error of the offset is one of the depth many times as
  // large, and the same from frame to frame: one marker is enough.
  if (outcome.used[0].any() && !commonOf(outcome.used[0], outcome.used[1]).any())
    outcome.used[1] = {};
  for (int marker = 0; marker < 2; ++marker) {
    const Sighting& used = outcome.used[marker];
    std::optional<PositionInformation>& information = light.information[marker];
    if (!areAlike(used, light.sighting[marker]))
      information = used.any() ? informationAt(used, light.at[marker]) : std::nullopt;
    if (used.any() && !information) return {Refusal::kOffTrack, 0, kGate2};
    if (used.both()) outcome.raysMiss2 = raysMiss(*information) * settings_.noise * settings_.noise;
  }
  const auto sawAny = [&](int camera) -> bool {
    return outcome.used[0].pixel[camera] || outcome.used[1].pixel[camera];
  };
  outcome.cameras = sawAny(kLeft) + sawAny(kRight);
  if (outcome.used[0].both() && outcome.used[1].both())
    correctByAll(light, outcome);
  else
    correctByRest(light, outcome);
  return outcome;
}

/// Which light is whose.
void Track::find(LightOfTwo& light, const ObjectCandidates& candidates) const {
  light.at[0] = centre_.p - offset_.p;
  light.at[1] = centre_.p + offset_.p;
  PixelEquations::Projections expectedAt[2];  // by marker and camera
  for (const int camera : {kLeft, kRight}) {
    const auto c = static_cast<std::size_t>(camera);
    for (int marker = 0; marker < 2; ++marker)
      expectedAt[marker][c] = equations_.project(camera, light.at[marker]);
    const std::optional<Projection>&first = expectedAt[0][c], &second = expectedAt[1][c];
    if (!first || !second) continue;
    const CandidateList& list = candidates[camera];
    const Candidate* a = list.nearest(first->pixel);
    const Candidate* b = list.nearest(second->pixel);
    if (a != nullptr && b != nullptr && (a->blobs & b->blobs) != 0) {
      // Both want the same light: the nearer has it.
      const bool firsts = (a->pixel - first->pixel).norm() < (b->pixel - second->pixel).norm();
      if (firsts)
        b = list.nearest(second->pixel, a->blobs);
      else
        a = list.nearest(first->pixel, b->blobs);
    }
    if (a != nullptr) light.sighting[0].pixel[camera] = a->pixel;
    if (b != nullptr) light.sighting[1].pixel[camera] = b->pixel;
  }
  for (int marker = 0; marker < 2; ++marker) {
    const Sighting& sighting = light.sighting[marker];
    const Vector3d& at = light.at[marker];
    if (!sighting.any()) continue;
    light.information[marker] =
        PixelEquations::information(sighting, at, expectedAt[marker], settings_.noise);
    straighten(light.information[marker], sighting, at);
  }
}

/// Each marker alone: does its light fit a middle and an offset that are expected there?
Outcome Track::admit(const LightOfTwo& light, const InteractingModels::Place& centre,
                     const InteractingModels::Place& offset) const {
  MotionState expected;
  expected.pp = centre.pp + offset.pp;
  Outcome outcome{Refusal::kNotSeen, 0, kGate2, 0};
  for (int marker = 0; marker < 2; ++marker) {
    const Sighting& sighting = light.sighting[marker];
    Sighting& admitted = outcome.used[marker];
    if (!sighting.any()) continue;
    expected.p = centre.p + (marker == 0 ? -1 : 1) * offset.p;
    const auto fits = [&](const std::optional<PositionInformation>& information, int cameras) {
      const double distance2 = information ? fitOf(expected, *information).distance2 : HUGE_VAL;
      if (outcome.refusal != Refusal::kNone)
        outcome = {Refusal::kOffTrack, distance2, kGate2, cameras};
      return distance2 <= kGate2;
    };
    if (sighting.both() && fits(light.information[marker], 2)) {
      admitted = sighting;
    } else if (blind_) {
      if (outcome.refusal == Refusal::kNotSeen) outcome.refusal = Refusal::kOneCamera;
    } else {
      bool one[2];
      for (const int camera : {kLeft, kRight})
        one[camera] = sighting.pixel[camera] &&
                      fits(informationAt(onlyOf(sighting, camera), light.at[marker]), 1);
      // Each fits alone, but not both together: one of them is wrong, and which is not known.
      if (one[kLeft] != one[kRight]) admitted = onlyOf(sighting, one[kLeft] ? kLeft : kRight);
    }
    if (admitted.any()) outcome.refusal = Refusal::kNone;
  }
  return outcome;
}

/// By what both cameras saw of both markers.
void Track::correctByAll(const LightOfTwo& light, Outcome& outcome) {
  const MiddleAndOffset both = middleAndOffset(*light.information[0], *light.information[1]);
  if (!corrected(state_.offset, both.offset, outcome)) return;
  spacing_.add(both.offset, offset_.p);
  if (state_.leaning) state_.centre.widen(offset_.pp);
  state_.leaning = false;
  corrected(state_.centre, both.middle, outcome);
}

/// By what is left where a camera missed a marker.
void Track::correctByRest(const LightOfTwo& light, Outcome& outcome) {
  PairInformation pair(centre_.p, offset_.p);
  for (int marker = 0; marker < 2; ++marker)
    if (light.information[marker]) pair.addMarker(marker, *light.information[marker]);
  // The middle, as it is known, says nothing of the offset: what the one takes from the other must
  // not come back.
  if (!corrected(state_.offset, pair.ofOffset(), outcome)) return;
  const auto spacing = spacing_.informationAt(state_.offset.place());
  const bool kept = spacing && state_.offset.correct(*spacing, kGate2) <= kGate2;

  // A camera that saw both markers sees the middle, whatever the offset is. Where that is not all
  // that was seen, the rest is light of the middle by an offset that is known.
  const bool alike = areAlike(outcome.used[0], outcome.used[1]);
  if (alike && state_.leaning) state_.centre.widen(offset_.pp);
  state_.leaning = !alike;
  if (!alike && kept) pair.addOffset(*spacing);
  corrected(state_.centre, alike ? pair.ofMiddle() : pair.ofMiddle(offset_.pp), outcome);
}

/// Fills how the correction ended.
bool Track::corrected(InteractingModels& models, const PositionInformation& information,
                      Outcome& outcome) {
  outcome.value = models.correct(information, kGate2);
  if (outcome.value <= kGate2) return true;
  outcome.refusal = Refusal::kOffTrack;
  return false;
}

}  // namespace estimate
