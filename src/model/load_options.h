// What a user wants done with everything that is loaded.
#pragma once

namespace vimbo {

/// Names in the settings stand behind each field.
struct LoadOptions {
    bool ensureUniqueNames = true;     ///< load.bEnsureUniqueNames
    bool autoMoveArticulation = false; ///< load.bAutoMoveArticulation
    bool autoMoveTriggerParams = true; ///< load.bAutoMoveTriggerParams
    bool autoSplitStereo = false;      ///< load.bAutoSplitStereo
    bool autoMergeStereo = true;       ///< load.bAutoMergeStereo
    bool autoCompactLayers = true;     ///< load.bAutoCompactLayers
    bool autoAppend32 = false;         ///< load.bAutoAppend32
    bool autoBid2Fwd = false;          ///< load.bAutoBid2Fwd
    bool autoSortWaves = true;         ///< load.bAutoSortWaves
    bool autoSortColl = true;          ///< load.bAutoSortColl
    bool autoRemoveDupWaves = true;    ///< load.bAutoRemoveDupWaves, when files are merged
};

} // namespace vimbo
