#include "CFader.h"

#include "CTimer.h"
#include "CVolumeControlAdapter.h"
#include "Logger.h"
#include "event.h"

namespace {
constexpr int64_t kMillisPerSecond = 1000;
constexpr long kNanosPerMilli = 1000000L;
constexpr uint32_t kDefaultVolume = 50;
}  // namespace

using KorvelPlayer::FadeRequest;
using KorvelPlayer::FADE_OP_WAIT;

CFader::CFader(CVolumeControlAdapter* volume)
    : m_timer_id(0), m_start(), m_delta(0), m_state(kStateIdle), m_elapsed_ms(0), m_volume(volume), m_callback(nullptr) {
    m_params.target = kDefaultVolume;
    m_params.init = kDefaultVolume;
    utils::CTimer::instance().start_thread();
}

CFader::~CFader() { Shutdown(); }

void CFader::Shutdown() {
    uint32_t id;
    {
        utils::scope_lock guard(m_lock);
        id = m_timer_id;
        CancelTimer();
    }
    if (id != 0) utils::CTimer::instance().wait_for_handler(id);
}

void CFader::SetCallback(KorvelPlayer::IFadingCallback* callback) {
    utils::scope_lock guard(m_lock);
    m_callback = callback;
}

void CFader::SetVolumeControl(CVolumeControlAdapter* volume) {
    KLOG_DEBUG("%s  initializing Volume Control Adapter to %p\n", GetPrefix(), static_cast<void*>(volume));
    if (volume == nullptr) {
        KLOG_WARNING("%s NULL Volume Control Adapter requested", GetPrefix());
        Shutdown();
    }
    utils::scope_lock guard(m_lock);
    m_volume = volume;
}

int CFader::GetState() const {
    utils::scope_lock guard(m_lock);
    return m_state;
}

FadeRequest CFader::GetRequest() const {
    utils::scope_lock guard(m_lock);
    return m_params;
}

// Each part in whole milliseconds before the difference, as the steps have always been timed.
uint32_t CFader::elapsed_ms() const {
    timespec now;
    clock_gettime(utils::event::kWaitClock, &now);
    const int64_t ms = kMillisPerSecond * (now.tv_sec - m_start.tv_sec) + now.tv_nsec / kNanosPerMilli -
                       m_start.tv_nsec / kNanosPerMilli;
    return ms < 0 ? 0 : static_cast<uint32_t>(ms);
}

void CFader::Setup(const FadeRequest& request) {
    KLOG_NOTICE("%s  setting up: init=%u%%, target=%u%%, wait=%lu, fading_duration=%lu ms, operation=%u wait time is %lu ms\n",
                GetPrefix(), request.init, request.target, static_cast<unsigned long>(request.wait),
                static_cast<unsigned long>(request.duration), request.operation, static_cast<unsigned long>(request.wait));
    utils::scope_lock guard(m_lock);
    CancelTimer();
    m_params = request;
    m_delta = static_cast<int>(request.target) - static_cast<int>(request.init);
    m_state = kStateWaiting;
    // The ramp starts from its start value, whenever it is started.
    if (request.operation != FADE_OP_WAIT && m_volume != nullptr) m_volume->SetOutputVolume(static_cast<int>(request.init));
}

// Called with m_lock held.
void CFader::start_timer_locked() {
    clock_gettime(utils::event::kWaitClock, &m_start);
    m_timer_id = utils::CTimer::instance().start_timer(kStepMs, *this, nullptr, true, 0);
}

void CFader::StartWaiting() {
    utils::scope_lock guard(m_lock);
    m_state = kStateWaiting;
    KLOG_INFO("%s Entering fader waiting state.", GetPrefix());
    KLOG_INFO("%s  starting wait before fading. State is %d\n", GetPrefix(), m_state);
    if (m_timer_id != 0) utils::CTimer::instance().delete_timer(m_timer_id);
    start_timer_locked();
}

void CFader::StartFadingNow() {
    utils::scope_lock guard(m_lock);
    if (m_state != kStateWaiting) return;
    KLOG_INFO("%s  starting fading NOW\n", GetPrefix());
    m_state = kStateFading;
    // A wait timer of the same job has nothing left to do.
    if (m_timer_id != 0) utils::CTimer::instance().delete_timer(m_timer_id);
    start_timer_locked();
}

void CFader::CancelTimer() {
    utils::scope_lock guard(m_lock);
    if (m_timer_id != 0) {
        KLOG_INFO("%s  Canceling timer\n", GetPrefix());
        utils::CTimer::instance().delete_timer(m_timer_id);
        m_timer_id = 0;
    }
    m_state = kStateIdle;
}

// Timer thread.
void CFader::on_timer(void*) {
    utils::scope_lock guard(m_lock);
    bool over = false;
    uint32_t operation = m_params.operation;
    if (m_state == kStateWaiting) {
        m_elapsed_ms = elapsed_ms();
        if (m_elapsed_ms > m_params.wait) {
            over = true;
            operation = FADE_OP_WAIT;
            KLOG_INFO("%s  Wait finished, issuing notification to owner\n", GetPrefix());
        }
    } else if (m_state == kStateFading) {
        const uint32_t elapsed = elapsed_ms();
        int volume = static_cast<int>(m_params.target);
        const bool finished = elapsed > m_params.duration;
        if (!finished)
            volume = m_params.duration == 0
                         ? static_cast<int>(m_params.init)
                         : static_cast<int>(m_params.init) +
                               static_cast<int>(static_cast<int64_t>(m_delta) * elapsed / m_params.duration);
        if (m_volume == nullptr) {
            KLOG_WARNING("%s  fading failed to apply volume of %d%%! Volume control object is NULL. \n", GetPrefix(), volume);
        } else if (volume != m_volume->GetVolumePercent() && m_volume->SetOutputVolume(volume) < 0) {
            KLOG_ERROR("%s ERROR : failing to set volume to %d\n", GetPrefix(), volume);
        }
        if (finished) {
            m_state = kStateIdle;
            KLOG_INFO("%s  fading finished, requested target volume is %d%%, operation to perform is %u\n", GetPrefix(),
                      volume, operation);
            over = true;
        }
    }
    if (!over) return;
    CancelTimer();
    if (m_callback != nullptr) m_callback->EndFadingCallback(&operation);
}

int CFader::Abort() {
    uint32_t operation;
    KorvelPlayer::IFadingCallback* callback;
    {
        utils::scope_lock guard(m_lock);
        KLOG_INFO("%s  About to abort fading operation is %d\n", GetPrefix(), static_cast<int>(m_params.operation));
        if (m_state == kStateIdle) {
            KLOG_INFO("%s  not active, quitting.\n", GetPrefix());
            return 0;
        }
        KLOG_INFO("%s  found active fading, aborting...\n", GetPrefix());
        if (m_volume != nullptr && m_volume->SetOutputVolume(static_cast<int>(m_params.target)) < 0)
            KLOG_ERROR("%s ERROR : failing to set volume to %d\n", GetPrefix(), static_cast<int>(m_params.target));
        CancelTimer();
        if (m_callback != nullptr) {
            m_callback->NotifyFadeAborted(static_cast<long>(m_elapsed_ms));
            m_elapsed_ms = 0;
        }
        operation = m_params.operation;
        callback = m_callback;
        m_state = kStateIdle;
    }
    if (operation == FADE_OP_WAIT) {
        KLOG_INFO("%s Waiting operation found, skipping callback call on Abort!\n", GetPrefix());
    } else if (callback != nullptr) {
        callback->EndFadingCallback(&operation);
    }
    KLOG_DEBUG("%s  fading aborted, operation=%u\n", GetPrefix(), operation);
    return 1;
}
