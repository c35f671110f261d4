#pragma once

// Invents a believable stream of work on five imaginary projects: six hours of history at once,
// then a live trickle. For a machine without agent sessions, for demonstrations, and as a
// reproducible bed for the views: the same seed and clock give the same stream.
//
// Lives on the main thread, and delivers there.

#include <cstdint>
#include <optional>
#include <string_view>

#include "activity/ActivitySource.h"
#include "activity/SyntheticMaker.h"
#include "platform/TaskQueue.h"
#include "support/Date.h"

namespace tessivane {

/// Whether the person asks for invented activity: with "1" in this variable of the environment, or
/// with true under this key of the settings.
inline constexpr const char* syntheticActivityVariable = "TESSIVANE_SYNTHETIC_ACTIVITY";
inline constexpr std::string_view syntheticActivityKey = "activity.synthetic";
bool wantsSyntheticActivity(std::optional<std::string_view> variable, std::optional<bool> setting);

class SyntheticActivitySource final : public ActivitySource {
 public:
  using Batch = SyntheticBatch;
  using Session = SyntheticSession;

  struct Environment {
    Clock now = [] { return distantPast; };
    TaskQueue* queue = nullptr;  ///< outlives the source; without one there is no trickle
  };

  static constexpr std::uint32_t defaultSeed = 11;
  static constexpr Seconds defaultTickInterval{1};

  /// An interval that is not above zero means history only.
  SyntheticActivitySource(std::uint32_t seed, Seconds tickInterval, Environment environment);

  /// Delivers the history within the first call, and never again; then a batch at every tick, an
  /// empty one too. While it runs, a further start changes nothing. The handler may stop or destroy
  /// the source.
  void start(BatchHandler onBatch) override;
  void stop() override;

  /// The six hours before `now`, events and edits each ascending by time.
  Batch history(Date now);
  /// What happens at one tick: at most one edit and one event.
  Batch tick(Date now);

 private:
  ActivityEvent liveEvent(Date at);
  const Session& pickSession();

  const Environment environment_;
  const Seconds tickInterval_;
  SyntheticMaker maker_;
  bool didEmitHistory_ = false;
  Date nextEmit_ = distantPast;
  TaskHandle timer_;
};

}  // namespace tessivane
