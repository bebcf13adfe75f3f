#include <alg_kit/trace/FateText.h>

#include <cstdio>

namespace trace {
namespace {

struct FateText {
  const char* key;
  const char* description;
};

constexpr FateText kTexts[kBlobFates] = {
    {"no-weight", "without weight"},
    {"merged", "merged into an overlapping blob"},
    {"no-partner", "no partner: the other camera saw none of the id"},
    {"surplus", "no partner: the other camera saw fewer of the id"},
    {"not-mutual", "no partner: not each other's nearest"},
    {"epipolar", "refused by the epipolar test"},
    {"too-near", "point behind or too near to the camera"},
    {"too-deep", "point removed by the depth pass"},
    {"jumped", "point removed by the jump pass"},
    {"far-from-reference", "point removed by the reference pass"},
    {"too-many", "point removed by the count pass"},
    {"held-by-jump", "point rejected by the object's jump test"},
    {"held-by-ratio", "point rejected by the pair's size ratio test"},
    {"delivered", "delivered"},
};

std::string number(double value) {
  char text[32];
  std::snprintf(text, sizeof text, "%.4g", value);
  return text;
}

std::string blobName(int index) {
  return "blob " + std::to_string(index);
}

}  // namespace

const char* describe(BlobFate fate) {
  return kTexts[static_cast<int>(fate)].description;
}

const char* keyOf(BlobFate fate) {
  return kTexts[static_cast<int>(fate)].key;
}

std::string reasonOf(const PacketTrace& packet, const TracedBlob& blob) {
  const std::string text = describe(blob.fate);
  const std::string value = number(blob.value), limit = number(blob.limit);
  const char* const otherCamera = blob.camera == 0 ? "right" : "left";
  switch (blob.fate) {
    case BlobFate::kNoWeight:
      return "weight 0: no centre";
    case BlobFate::kMerged:
      return "merged into " + blobName(blob.other) + ": " + value +
             " px apart, below their mean diameter of " + limit;
    case BlobFate::kNoPartner:
      return std::string("no partner: the ") + otherCamera + " camera saw no blob of id " +
             std::to_string(blob.raw.id);
    case BlobFate::kSurplus:
      return std::string("no partner: of ") + value + " blobs the largest " + limit +
             " were kept, as many as the " + otherCamera + " camera saw; diameter " +
             std::to_string(blob.diameter);
    case BlobFate::kNotMutual:
      return "no partner: its nearest (means aligned) is " + blobName(blob.nearest) +
             ", whose nearest is " + blobName(blob.nearestsNearest);
    case BlobFate::kEpipolar:
      return text + " with " + blobName(blob.other) + ": " + value +
             " px from the lines, not below the mean diameter of " + limit;
    case BlobFate::kTooNear:
      return text + ": z = " + value + ", must be above " + limit;
    case BlobFate::kTooDeep:
      return text + ": z = " + value + ", limit " + limit;
    case BlobFate::kJumped:
      return text + ": " + value + " from the mean of its id in the frame before, limit " + limit;
    case BlobFate::kFarFromReference:
      return text + ": " + value + " from the mean of id " +
             std::to_string(algorithm::kReferenceId) + ", limit " + limit;
    case BlobFate::kTooMany:
      return text + ": the id may have " + limit +
             (packet.hadPreviousPoints
                  ? ", and this one is farthest from where the id was (" + value + ")"
                  : ", and others come first (no earlier frame)");
    case BlobFate::kHeldByJump:
      return text + ": " + value + " from the last accepted position, limit " + limit;
    case BlobFate::kHeldByRatio:
      return text + ": the ratio of its diameters changed by the factor " + value + ", allowed 1/" +
             limit + " to " + limit;
    case BlobFate::kDelivered:
      return "delivered as object " + std::to_string(blob.raw.id) + " with " + blobName(blob.other);
  }
  return text;
}

}  // namespace trace
