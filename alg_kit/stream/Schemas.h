#pragma once

#include <string_view>

namespace stream {

// The texts of the files in schemas/, put into the program by MakeSchemas.cmake.
extern const std::string_view kSceneUpdateSchema;
extern const std::string_view kFrameTransformsSchema;
extern const std::string_view kPosesInFrameSchema;
extern const std::string_view kLogSchema;
extern const std::string_view kBlockSchema;
extern const std::string_view kBlobsSchema;
extern const std::string_view kStatisticsSchema;

}  // namespace stream
