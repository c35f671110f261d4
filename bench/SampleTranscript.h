#pragma once

// Makes up Claude Code transcripts: line shapes, key orders and sizes as the client writes them
// (seen in files of 2.0.76 and 2.1.330), with made-up contents. Pure functions.

#include <cstddef>
#include <cstdint>
#include <string>

#include "support/Date.h"

namespace tessivane {

enum class TranscriptEnding {
  answered,     ///< a finished turn
  toolCalled,   ///< a tool call with no result
  toolResult,   ///< a result that nothing follows
  interrupted,  ///< the marker that Escape leaves
  picture       ///< a result with a picture in it: one line longer than a tail window
};

struct TranscriptPlan {
  std::uint64_t seed = 0;
  std::string sessionID = {};
  std::string entrypoint = "cli";
  std::string cwd = {};
  Date first = {};        ///< time of the first message
  Date last = {};         ///< time of the last one
  std::size_t bytes = 0;  ///< to be reached, and passed by a few lines at most
  bool current = true;  ///< by a client that writes titles, modes and long attachments; older ones
                        ///< write nothing but messages
  bool pictureFirst = false;  ///< the first prompt comes with a picture, so that the line is longer
                              ///< than a head window
  TranscriptEnding ending = TranscriptEnding::answered;
};

/// The whole transcript.
std::string sampleTranscript(const TranscriptPlan& plan);

}  // namespace tessivane
