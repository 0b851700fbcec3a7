#ifndef KORVEL_CVOLUMECONTROLADAPTER_H
#define KORVEL_CVOLUMECONTROLADAPTER_H

#include <alsa/asoundlib.h>
#include <atomic>
#include <string>

#include "APlayerInfoAdapter.h"
#include "CVolumeConvertion.h"
#include "mutex.h"

// Sets a player's loudness through one ALSA simple mixer element of the card "default", in percent
// (raw 0..255 steps) or in dB, and remembers the last volume in both units.
// The setters are called from the worker thread (volume commands) and the timer thread (fade
// steps); the mixer handle is not thread-safe, so every mixer call runs under m_lock.
class CVolumeControlAdapter : public CVolumeConvertion, public APlayerInfoAdapter {
public:
    static constexpr int kRawVolumeMax = 255;
    static constexpr int kMinDb = -120;
    static constexpr int kMaxDb = 0;

    CVolumeControlAdapter();
    ~CVolumeControlAdapter() override;

    int OpenMixer();
    int CloseMixer();
    int SetOutputVolume(int percent);
    int SetOutputVolume_db(int dB);
    void set_element_name(const char* name);
    void set_player_prefix(const char* prefix) override;

    int GetVolumePercent() const { return m_volume_percent.load(); }
    int GetVolumeMillibel() const { return m_volume_mB.load(); }
    const std::string& GetElementName() const { return m_element_name; }

private:
    std::atomic<int> m_volume_percent;  // atomic: written by the setters, read by the player's getter
    std::atomic<int> m_volume_mB;       // atomic: as m_volume_percent
    snd_mixer_t* m_mixer;               // guarded by m_lock
    snd_mixer_selem_id_t* m_selem_id;   // guarded by m_lock; only while OpenMixer looks up the element
    std::string m_element_name;         // set before OpenMixer, on the worker thread
    snd_mixer_elem_t* m_element;        // guarded by m_lock
    utils::mutex m_lock;
};

#endif
