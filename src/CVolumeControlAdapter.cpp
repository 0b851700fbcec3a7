#include "CVolumeControlAdapter.h"

#include "Logger.h"

namespace {
constexpr const char* kPrefixTag = " VOLUME CONTROL:";
constexpr const char* kDefaultElement = "Playback";
constexpr const char* kCard = "default";
constexpr int kMaxPercent = 100;
constexpr int kMillibelPerDb = 100;
// Nearest step when a dB value falls between two raw steps of the element.
constexpr int kNearestStep = 0;
}  // namespace

CVolumeControlAdapter::CVolumeControlAdapter()
    : m_volume_percent(0),
      m_volume_mB(0),
      m_mixer(nullptr),
      m_selem_id(nullptr),
      m_element_name(kDefaultElement),
      m_element(nullptr) {
}

CVolumeControlAdapter::~CVolumeControlAdapter() { CloseMixer(); }

void CVolumeControlAdapter::set_player_prefix(const char* prefix) {
    set_tagged_prefix(prefix, kPrefixTag);
}

void CVolumeControlAdapter::set_element_name(const char* name) { m_element_name = name != nullptr ? name : ""; }

int CVolumeControlAdapter::OpenMixer() {
    utils::scope_lock guard(m_lock);
    if (int err = snd_mixer_open(&m_mixer, 0); err < 0) {
        KLOG_ERROR("%s ERROR :CPCMOutput::OpenMixer(): cannot open sound mixer (%s)\n", GetPrefix(), snd_strerror(err));
        m_mixer = nullptr;
        return err;
    }
    if (int err = snd_mixer_attach(m_mixer, kCard); err < 0) {
        KLOG_ERROR("%s ERROR :CPCMOutput::OpenMixer(): cannot attach sound mixer to sound card (%s)\n", GetPrefix(),
                   snd_strerror(err));
        return err;
    }
    if (int err = snd_mixer_selem_register(m_mixer, nullptr, nullptr); err < 0) {
        KLOG_ERROR("%s ERROR :CPCMOutput::OpenMixer(): cannot register sound mixer (%s)\n", GetPrefix(),
                   snd_strerror(err));
        return err;
    }
    if (int err = snd_mixer_load(m_mixer); err < 0) {
        KLOG_ERROR("%s ERROR :CPCMOutput::OpenMixer(): cannot load mixer (%s)\n", GetPrefix(), snd_strerror(err));
        return err;
    }
    if (snd_mixer_selem_id_malloc(&m_selem_id) < 0 || m_selem_id == nullptr) {
        KLOG_ERROR("%s ERROR :CPCMOutput::OpenMixer(): cannot allocate simple mixer element struct \n", GetPrefix());
        m_selem_id = nullptr;
        return -1;
    }
    snd_mixer_selem_id_set_index(m_selem_id, 0);
    snd_mixer_selem_id_set_name(m_selem_id, m_element_name.c_str());
    m_element = snd_mixer_find_selem(m_mixer, m_selem_id);
    snd_mixer_selem_id_free(m_selem_id);
    m_selem_id = nullptr;
    return 0;
}

int CVolumeControlAdapter::CloseMixer() {
    utils::scope_lock guard(m_lock);
    m_element = nullptr;
    if (m_mixer == nullptr) {
        KLOG_INFO("%s CPCMOutput::CloseMixer(): No active mixer handle found. \n", GetPrefix());
        return 0;
    }
    const int result = snd_mixer_close(m_mixer);
    m_mixer = nullptr;
    return result;
}

int CVolumeControlAdapter::SetOutputVolume(int percent) {
    if (percent > kMaxPercent) {
        KLOG_ERROR("%s ERROR :CPCMOutput::SetOutputVolume(): Volume value %ld is out of range, value in [0..100 %%] required. \n",
                   GetPrefix(), static_cast<long>(percent));
        return -1;
    }
    utils::scope_lock guard(m_lock);
    if (m_element == nullptr) {
        KLOG_ERROR("%s ERROR :SetOutputVolume(): Could not find the mixer simple element: %s ", GetPrefix(),
                   m_element_name.c_str());
        return -1;
    }
    const long raw = static_cast<long>(kRawVolumeMax) * percent / kMaxPercent;
    if (int err = snd_mixer_selem_set_playback_volume_all(m_element, raw); err < 0) {
        KLOG_ERROR("%s ERROR : id=%d, CPCMOutput::SetOutputVolume(): cannot set volume of Mixer element %s to %d. ret=%d (%s)\n",
                   GetPrefix(), GetPlayerId(), m_element_name.c_str(), percent, err, snd_strerror(err));
        return -1;
    }
    // Remembered before anything else: a reader that sees the mixer's new value sees this one too.
    m_volume_percent = percent;
    m_volume_mB = ToMillibel(percent);
    KLOG_NOTICE("%s  Setting volume %d%% went OK.\n", GetPrefix(), percent);
    return 0;
}

int CVolumeControlAdapter::SetOutputVolume_db(int dB) {
    if (dB < kMinDb || dB > kMaxDb) {
        KLOG_ERROR("%s ERROR :CPCMOutput::SetOutputVolume_db(): Volume value %ld dB is out of range, value in [-120..0 dB] required. \n",
                   GetPrefix(), static_cast<long>(dB));
        return -1;
    }
    utils::scope_lock guard(m_lock);
    if (m_element == nullptr) {
        KLOG_ERROR("%s ERROR :CPCMOutput::SetOutputVolume_db(): Could not find the mixer simple element: '%s'\n",
                   GetPrefix(), m_element_name.c_str());
        return -1;
    }
    if (int err = snd_mixer_selem_set_playback_dB_all(m_element, static_cast<long>(dB) * kMillibelPerDb, kNearestStep);
        err < 0) {
        KLOG_ERROR("%s ERROR :CPCMOutput::SetOutputVolume_db(): cannot set volume for Mixer element %s to %d dB. (%s)\n",
                   GetPrefix(), m_element_name.c_str(), dB, snd_strerror(err));
        return -1;
    }
    KLOG_NOTICE("%s  id=%d, CPCMOutput::SetOutputVolume_db(): Setting volume %d in dB went OK.\n", GetPrefix(),
                GetPlayerId(), dB);
    m_volume_mB = dB * kMillibelPerDb;
    m_volume_percent = FromMillibel(dB * kMillibelPerDb);
    return 0;
}
