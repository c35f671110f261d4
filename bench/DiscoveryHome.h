#pragma once

// A made-up home directory in which the watched tools have been at work: what the benches and the
// tests of whole passes run on. Everything in it follows from size, seed and date. Made on the
// calling thread, in a few seconds at full size (0.8 GB on the disk; holes make it look like 5 GB).

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "support/Date.h"

namespace tessivane {

struct DiscoveryHomeSize {
  std::size_t projects = 60;
  std::size_t transcripts = 3'000;
  std::size_t recentTranscripts = 400;  ///< of all, those inside the window
  std::size_t hugeTranscripts = 5;      ///< of the recent ones, those of 200 MB
  std::size_t metadataFiles = 500;      ///< of the desktop application
  std::size_t codexThreads = 300;       ///< inside the window, each with a rollout
  std::size_t t3Threads = 200;          ///< inside the window
  std::uint64_t seed = 1;

  /// The same mixture with every count multiplied by `factor`; no kind of file dies out.
  DiscoveryHomeSize scaled(double factor) const;
};

/// A file that a pass must look at, and what it may read of it at most.
struct LookedAtFile {
  std::string path = {};
  std::size_t headBytes = 0;
  std::size_t tailBytes = 0;
};

struct DiscoveryHome {
  std::string directory = {};        ///< the home
  std::string configDirectory = {};  ///< what $XDG_CONFIG_HOME would be
  Date since = {};                   ///< the window: all that is recent is later than this
  std::vector<LookedAtFile> files = {};
  /// What a right pass lists.
  std::size_t claudeSessions = 0;
  std::size_t codexSessions = 0;
  std::size_t t3Sessions = 0;
};

/// Makes the home in `directory`, which is created. A home of that size that stands there is used
/// again when it was made less than three hours before `now`, as its dates still lie inside the
/// window, and is replaced else. Throws std::runtime_error when something else stands there or the
/// disk is full.
DiscoveryHome makeDiscoveryHome(const std::string& directory,
                                const DiscoveryHomeSize& size,
                                Date now);

}  // namespace tessivane
