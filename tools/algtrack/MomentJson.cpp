#include <tools/algtrack/MomentJson.h>

namespace algtrack {

Json momentJson(const analysis::Moment& moment) {
  Json json;
  json["packet"] = moment.packet;
  json["call"] = moment.call;
  json["time_s"] = moment.seconds;
  return json;
}

Json rangeJson(const analysis::TimeRange& range) {
  Json json;
  json["from_s"] = range.from ? Json(*range.from) : Json(nullptr);
  json["to_s"] = range.to ? Json(*range.to) : Json(nullptr);
  return json;
}

}  // namespace algtrack
