#pragma once

/// What devices write, for tests of what reads it.

#include <array>
#include <cstdio>
#include <string>

namespace Nima::Testing {

/// A line of a text log.
inline std::string LogLine(long long counter, const std::string& text, unsigned thread = 1) {
    std::array<char, 64> header{};
    std::snprintf(header.data(), header.size(), "%lld <0x%08x:000> ", counter, thread);
    return header.data() + text + "\r\n";
}

/// `date`: month from 0, day, hours, minutes and seconds with two digits each, a dot and a part of a second.
inline std::string Calibration(long long counter, const std::string& date, unsigned thread = 1) {
    return LogLine(counter, "<CAL> <Trace> Calibration freq=1000000, now=0126" + date + ", type=qpc", thread);
}

inline std::string TwoDigits(int number) {
    return (number < 10 ? "0" : "") + std::to_string(number);
}

struct LogText {
    std::string code = "31AC05";
    int second = 0; ///< of the minute in which all dates lie
    long long ticks = 500'000'000;
    int cycle = 0;
    std::string type = "2";
    std::string file{}; ///< with its line, as in "fuser.cpp\r\nLine Numbr: 54"
};

/// A crash log without modules, stacks and rings.
inline std::string CrashLogOf(const LogText& log) {
    return "Crash Date/Time: 0126-10-24 16:31:" + TwoDigits(log.second) +
           ".54000\r\nTicks: " + std::to_string(log.ticks) +
           "\r\nFrequency: 1000000\r\n\r\nError Code: " + log.code +
           (log.file.empty() ? "" : "\r\nFile Name: " + log.file) +
           "\r\nFault Addr: 0\r\nCrash Type: " + log.type +
           "\r\nExcpt Code: 0\r\nBoot Cycle: " + std::to_string(log.cycle) +
           "\r\n\r\nLoaded Modules\r\n\r\n\r\nCall Stacks\r\n\r\n\r\nRing Buffers (unformatted)\r\n"
           "\r\nBEGIN RING BUFFER DUMP\r\n\r\n\r\nEND RING BUFFER DUMP\r\n\r\nAll Done!!\r\n";
}

} // namespace Nima::Testing
