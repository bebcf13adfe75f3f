// Public: installed for hosts.
//
// The one header a host includes: the factory, the interface, the two callback interfaces, the
// plain records and the numbers that cross the interface, and the version.
#pragma once

#include <alg_factory/api/AlgBase.h>
#include <alg_factory/api/Constants.h>
#include <alg_factory/api/DataSink.h>
#include <alg_factory/api/Export.h>
#include <alg_factory/api/LogSink.h>
#include <alg_factory/api/Version.h>
#include <alg_factory/service/HeadingAnswer.h>
#include <alg_factory/service/InertialRecord.h>
#include <alg_factory/service/PoseAnswer.h>
#include <alg_factory/service/ResultBlock.h>
#include <alg_factory/stereo3d/StereoCalibration.h>

namespace algorithm {

/// Creates algorithm objects.
class AlgFactory {
 public:
  /// @param type  0, 1 or 2; it does not select a product (that is `Init`'s).
  /// @return a new object bound to the process-wide pipeline, or null for any other `type`.
  ///         It holds a few bytes and no pipeline state. The host may keep it for the life of the
  ///         process, or delete it as AlgBase says.
  static ALG_FACTORY_EXPORT AlgBase* CreateALG(int type);

  AlgFactory() = default;
  AlgFactory(const AlgFactory&) = default;  ///< as the assignment

  /// Copies nothing: a factory has no state. Returns the left-hand object.
  ALG_FACTORY_EXPORT AlgFactory& operator=(const AlgFactory&);
};

}  // namespace algorithm
