#pragma once

/// The accessor that the host's audio module (kvxaudio) exports.

#include "framework/services/IAudioFile.h"
#include "framework/services/ModuleApi.h"

extern "C" {

/// Registers the audio-file class (IAudioFile::kClassId) with the host's plug-in manager; a host
/// calls it once at start. kResultOk also when it is registered already.
KVX_MODULE_API KVX::tresult RegisterAudioFileClass();
}
