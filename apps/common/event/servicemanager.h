#pragma once

#include <chrono>
#include <string>

/// The process's side of systemd's notification protocol (sd_notify(3)): texts as datagrams to the Unix
/// socket that the variable NOTIFY_SOCKET of the environment names; a leading "@" stands for an abstract
/// socket. Without the variable nothing is sent. No call blocks; a failure is logged at Warn with "<socket>:
/// <reason>".
class ServiceManager {
public:
    using Clock = std::chrono::steady_clock;

    /// Reads the environment. systemd sets WATCHDOG_USEC, in microseconds, for the process WATCHDOG_PID.
    ServiceManager();

    /// Reports that start-up is complete: "READY=1".
    void reportReady() const;

    /// Reports that the process works: "WATCHDOG=1", twice in the watchdog's period, however often it is
    /// called; again after a second if it could not be sent. Does nothing without a watchdog.
    void feedWatchdog(Clock::time_point now = Clock::now());

    /// Lets systemd act at once as if the watchdog's period were over: "WATCHDOG=trigger". Does nothing when
    /// it is called again; again after a second if it could not be sent.
    void askForRestart(Clock::time_point now = Clock::now());

private:
    /// Returns false if the message could not be sent, for example because no descriptor is left.
    bool send(const std::string& message) const;

    std::string socket_;              ///< empty without NOTIFY_SOCKET
    std::chrono::microseconds pause_; ///< between two reports; 0 without a watchdog
    Clock::time_point next_{};
    bool isRestartAsked_ = false;
    Clock::time_point nextAsk_{};
};
