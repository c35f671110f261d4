#pragma once

// Six hours of work, made up: each session of the synthetic stream from its start to its end, or
// to now. Part of the synthetic source, on its thread.

#include "activity/SyntheticMaker.h"
#include "support/Date.h"

namespace tessivane {

/// The events and edits of the six hours before `now`, each ascending by date. Pull requests that
/// are open at the end stay open in the maker.
///
/// How it goes: the sessions start one after the other over the six hours, in a drawn order, so
/// that two or three are at work at any time. A session does the commits of its task in order, one
/// to three in a turn, with edits in the minutes before each; some follow one another within a
/// minute, and some are made again, amended. A turn ends with a question, which the person answers
/// after some minutes, or is finished; then the person looks at it, often a pull request is opened,
/// and most of those are merged after ten minutes to an hour. Scheduled jobs run on the hour, for
/// one commit.
SyntheticBatch syntheticHistory(SyntheticMaker& maker, Date now);

}  // namespace tessivane
