// The registrations, one kind of tag each.

#include "values.h"

namespace pipeline {

void registerTags() {
    registerPsDynamicParam(FRAME_READY.id, sizeof(FrameReady), FRAME_READY.type, "frame ready", "FrameReady");
    registerPsDynamicParam(STATISTICS.id, sizeof(Statistics), STATISTICS.type, "statistics", "Statistics");
    registerPsDynamicParamWithExtendingLife(GAIN.id, sizeof(Gain), GAIN.type, "gain", "Gain", GAIN.retain);
    registerPsQueueParam(HISTORY.id, sizeof(HistoryEntry), HISTORY.type, "history", "HistoryEntry", HISTORY.retain);
    registerPsStaticParam(TUNING.id, sizeof(Tuning), TUNING.type, "tuning", "Tuning");
    registerPsDynamicParam(RELEASED.id, sizeof(Released), RELEASED.type, "released", "Released");
}

}  // namespace pipeline
