// The simulated panel's commands, typed at its prompt or read from a script:
// plug and unplug devices, move, click, type, touch, scan barcodes, switch
// modes, replay a recording, take a snapshot of the screen, and (for
// scripts) wait for what a client should receive.
#pragma once

#include <string>

#include "sim/panel.h"
#include "sim/scanner_client.h"
#include "sim/transcript.h"

namespace emul {

class Interpreter {
public:
    Interpreter(Panel& panel, Transcript& transcript) : panel_(panel), transcript_(transcript) {}

    // Runs one command line. False when the session should end ("quit").
    bool run(const std::string& line);
    // Commands that failed and expectations that were not met so far.
    int failures() const { return failures_; }

    // The demonstration, as a script of the same commands.
    static const char* demo_script();
    static const char* help_text();

private:
    bool fail(const std::string& text);
    void touch(const std::vector<std::string>& words);
    void replay(const std::vector<std::string>& words);
    void plug_recording(const std::vector<std::string>& words);
    void scan(const std::vector<std::string>& words);
    void scanner_client(const std::vector<std::string>& words);
    void send(const std::vector<std::string>& words);
    void control_message(const std::vector<std::string>& words);
    void write_file(const std::vector<std::string>& words);
    // expect, expect-none and expect-records.
    bool expectation(const std::string& cmd, const std::vector<std::string>& words);
    // One event and its SYN_REPORT; false (counted) when it cannot be played.
    bool press(const std::string& device, uint16_t type, uint16_t code, int32_t value);

    Panel& panel_;
    Transcript& transcript_;
    ScannerClient scanner_client_{transcript_};
    int failures_ = 0;
    std::size_t mark_ = 0;      // transcript lines before the last action
    std::size_t log_mark_ = 0;  // length of the daemon's log before the last action
    int tracking_id_ = 0;       // of the next multi-touch contact
    std::string touch_device_;  // the device of a contact in progress
};

}  // namespace emul
