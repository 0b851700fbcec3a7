#ifndef KORVEL_AUDIOFORMAT_H
#define KORVEL_AUDIOFORMAT_H

// The shape of the PCM that follows on an output: bits per sample, sample rate, channels.
struct AudioFormat {
    int bits = 0;
    int rate = 0;
    int channels = 0;

    // A format is usable when none of its three numbers is 0.
    bool IsValid() const { return bits != 0 && rate != 0 && channels != 0; }
};

// What an output is, as GetType() reports it and SetDecoderId() selects it.
enum AudioOutputType : int {
    AUDIO_TYPE_MP3 = 0,
    AUDIO_TYPE_AAC = 1,
    AUDIO_TYPE_AAC_ADTS = 2,
    AUDIO_TYPE_PCM = 3,
};

#endif
