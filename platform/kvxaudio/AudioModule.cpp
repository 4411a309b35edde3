#include "framework/services/AudioServices.h"
#include "framework/services/SystemServices.h"
#include "platform/kvxaudio/AudioFile.h"

using namespace KVX;

tresult RegisterAudioFileClass()
{
    IPlugInManager* manager = GetPlugInManager();
    UID existing;
    if (manager->findClass("AudioFile", existing) == kResultOk)
        return existing == IAudioFile::kClassId ? kResultOk : kUnexpected;
    return manager->registerClass(IAudioFile::kClassId, &Audio::AudioFile::create, "AudioFile");
}
