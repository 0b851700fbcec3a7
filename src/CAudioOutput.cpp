#include "CAudioOutput.h"

#include "Logger.h"

int CAudioOutput::SetDecoderId(int id) {
    int result = 0;
    for (IAudioOutput* output : m_outputs) {
        result = output->SetDecoderId(id);
        if (result < 0)
            KLOG_ERROR("%s ERROR :CAudioOutput::AssignAudioFormat(): Setting decoder id for audio interface %x failed. \n",
                       GetPrefix(), static_cast<unsigned>(reinterpret_cast<uintptr_t>(output)));
    }
    return result;
}

void CAudioOutput::SetExtraData(uint8_t** data, uint32_t* size, int source) {
    for (IAudioOutput* output : m_outputs) output->SetExtraData(data, size, source);
}

void CAudioOutput::SendAudio(const uint8_t* data, uint16_t frames, unsigned int lost_packets) {
    for (IAudioOutput* output : m_outputs) {
        const int result = output->WriteBuffer(data, frames, lost_packets);
        if (result >= 0) continue;
        KLOG_ERROR("%s ERROR :CAudioOutput::SendAudio() returned negative return value ret=%d, restarting the feed.\n",
                   GetPrefix(), result);
        const int restarted = output->RestartFeed();
        if (restarted < 0)
            KLOG_ERROR("%s ERROR :CAudioOutput::SendAudio() restarting the feed returned negative value ret=%d.\n",
                       GetPrefix(), restarted);
    }
}

void CAudioOutput::SetOutput(IAudioOutput* output) {
    m_outputs.clear();
    if (output != nullptr) m_outputs.push_back(output);
}

int CAudioOutput::AssignAudioFormat(const AudioFormat& format) {
    int result = 0;
    for (IAudioOutput* output : m_outputs) {
        result = output->SetAudioFormat(format);
        if (result < 0)
            KLOG_ERROR("%s ERROR :CAudioOutput::AssignAudioFormat(): Setting audio format for audio interface %x failed. \n",
                       GetPrefix(), static_cast<unsigned>(reinterpret_cast<uintptr_t>(output)));
    }
    return result;
}
