#pragma once

#include <atomic>

// What other threads tell the serial tick: the percentage of a long device operation (set by the
// readers and the parameter loader), and a request to re-apply the port settings of the current mode.
// One per link, owned by the transport and handed to whoever reports progress.
class LinkProgress
{
public:
    // Any thread.
    void setValue(int percent) { m_value.store(percent); }
    int value() const { return m_value.load(); }
    void requestReload() { m_reload.store(true); }

    // The serial tick only. True once per change, with the value to announce.
    bool takeChange(int *percent);
    // The serial tick only. True once per request.
    bool takeReload() { return m_reload.exchange(false); }

private:
    std::atomic<int> m_value{0};
    std::atomic<bool> m_reload{false};
    int m_reported = 0;
};
