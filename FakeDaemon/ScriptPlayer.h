#pragma once

#include "FakeDaemon/FakeDaemon.h"
#include "Platform/PollLoop.h"

#include <deque>
#include <string>
#include <string_view>

namespace kelvane {

// Plays a script for a fake daemon: one JSON object per line, executed when it arrives unless an earlier one
// still waits.
//
//   {"state": {"paused": true}}                              changes entries of the state dictionary
//   {"answer": "userEmail", "value": "a@example.net"}        sets the method's result; empty without a value
//   {"garbage": "userEmail"}  {"usual": "userEmail"}         an invalid answer; the default one again
//   {"callback": "fileChanged:", "arguments": ["/tmp/a"]}    calls every pane
//   {"wait": 1.5}                                            seconds
//   {"panes": "close"}  {"daemon": "stop"}  {"daemon": "start"}
//   {"quit": 0}                                              ends the program with this status
//
// Runs on the loop's thread. A line that cannot be executed ends the loop with status 2, and the reason is
// written to standard error.
class ScriptPlayer {
public:
    ScriptPlayer(FakeDaemon& daemon, PollLoop& loop) : daemon_(daemon), loop_(loop) {}

    // Takes any part of the script; a line is executed when it is complete.
    void add(std::string_view text);
    // The last line needs no line feed.
    void end();

private:
    void play();
    [[nodiscard]] std::string perform(const Value& step);
    [[nodiscard]] std::string callBack(const Value& step);
    [[nodiscard]] std::string setAnswer(std::string_view kind, const Value& step);

    FakeDaemon& daemon_;
    PollLoop& loop_;
    std::string unfinished_;
    std::deque<std::string> lines_;
    std::size_t lineNumber_ = 0;
    Timer waiting_;
};

} // namespace kelvane
