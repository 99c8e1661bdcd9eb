#include "tests/simulator/TextLog.h"

#include <array>
#include <cstdio>
#include <ctime>
#include <utility>

namespace Simulator {

namespace {

constexpr std::size_t kRoom = 4094; ///< of the buffer's 4096 bytes; two are for a line's end

} // namespace

std::string CompactDate(std::int64_t wall) {
    const auto second = static_cast<std::time_t>(wall / kSecond);
    std::tm fields{};
    ::gmtime_r(&second, &fields);
    char text[96];
    std::snprintf(text, sizeof(text), "%04d%02d%02d%02d%02d%02d.%03d", fields.tm_year, fields.tm_mon,
                  fields.tm_mday, fields.tm_hour, fields.tm_min, fields.tm_sec,
                  static_cast<int>(wall % kSecond / kMicrosecond & 0xFFFF));
    return text;
}

std::string SpacedDate(std::int64_t wall) {
    const std::string date = CompactDate(wall);
    return date.substr(0, 4) + '-' + date.substr(4, 2) + '-' + date.substr(6, 2) + ' ' + date.substr(8, 2) +
           ':' + date.substr(10, 2) + ':' + date.substr(12);
}

TextLog::TextLog(World& world, Process& process, LogSettings settings)
    : world_(world), process_(process), settings_(std::move(settings)), buffering_(settings_.buffered) {}

void TextLog::OpenFile() {
    file_ = world_.files.Open(settings_.name);
    position_ = file_->content.size();
    written_ = static_cast<std::int64_t>(position_);
}

void TextLog::Open(std::uint32_t thread) {
    Close();
    OpenFile();
    if (!settings_.append) {
        Roll();
    }
    Calibrate(thread);
}

void TextLog::Close() {
    if (file_) {
        FlushBuffer();
        file_.reset();
    }
}

void TextLog::Kill(std::size_t kept) {
    if (file_) {
        Write(std::string_view(buffer_).substr(0, kept));
    }
    buffer_.clear();
    file_.reset();
}

void TextLog::Flush(bool final) {
    FlushBuffer();
    buffering_ = buffering_ && !final;
}

void TextLog::Write(std::string_view bytes) {
    std::string& content = file_->content;
    if (position_ > content.size()) {
        content.resize(position_); // another process made the file shorter; never so here
    }
    content.replace(position_, std::min(bytes.size(), content.size() - position_), bytes);
    position_ += bytes.size();
    written_ += static_cast<std::int64_t>(bytes.size());
    file_->modified = world_.device.Wall();
}

void TextLog::FlushBuffer() {
    if (!buffer_.empty()) {
        Write(buffer_);
        buffer_.clear();
    }
}

void TextLog::Store(std::uint32_t thread, std::string_view prefix, std::string_view payload) {
    const std::size_t total = prefix.size() + payload.size();
    const std::string_view end = payload.back() == '\n' ? "" : "\r\n";
    if (total < kRoom && buffering_) {
        if (buffer_.size() + total > kRoom) {
            FlushBuffer();
        }
        buffer_ += prefix;
        buffer_ += payload;
        buffer_ += end;
    } else {
        FlushBuffer();
        Write(prefix);
        Write(payload);
        Write(end);
    }
    if (IsFull()) {
        Roll();
        Calibrate(thread);
    }
}

void TextLog::Roll() {
    world_.device.Hold(world_.device.DateDelay());
    if (settings_.backups == 0) {
        position_ = 0;
        written_ = 0;
        return;
    }
    Close();
    world_.device.Hold(world_.device.SyncDelay());
    world_.files.Remove(settings_.name + ".10");
    world_.files.Rename(settings_.name, settings_.name + ".1");
    OpenFile();
    if (IsFull()) {
        position_ = 0;
    }
}

void TextLog::Calibrate(std::uint32_t thread) {
    Stamp stamp = world_.StampNow(Kind::kText, process_.Number(), thread);
    stamp.header = HeaderNow(thread) + "<CAL> <Trace> ";
    world_.device.Hold(world_.device.DateDelay());
    const std::string message =
        "Calibration freq=1000000, now=" + CompactDate(world_.device.Wall()) + ", type=qpc";
    Write(stamp.header + message + "\r\n");
    world_.truth.calibrations.emplace(message, std::move(stamp));
}

std::string TextLog::HeaderNow(std::uint32_t thread) const {
    char text[64];
    std::snprintf(text, sizeof(text), "%lld <0x%08x:000> ",
                  static_cast<long long>(CounterAt(world_.device.Now())), static_cast<unsigned>(thread));
    return text;
}

std::string TextLog::Message() {
    static constexpr std::array<const char*, 8> kWords{"page ",  "of job ", "tray 2 ", "0x1f ",
                                                       "is ok ", "waits ",  "12345 ",  "fuser: 180 C "};
    Random& random = world_.random;
    const std::int64_t length = random.OneIn(30) ? random.Below(700) : random.Below(70);
    std::string text;
    while (static_cast<std::int64_t>(text.size()) < length) {
        text += kWords[static_cast<std::size_t>(random.Below(kWords.size()))];
    }
    if (random.OneIn(60)) {
        text += "\n  and a second line";
    }
    if (random.OneIn(5)) {
        text += "\n";
    }
    return text;
}

void TextLog::Line(std::uint32_t thread) {
    Line(thread, Message());
}

void TextLog::Line(std::uint32_t thread, const std::string& message) {
    static constexpr std::array<const char*, 5> kLevels{
        "<ERROR> <Engine> ", "<WARN> <Panel> ", "<INFO> <Job> ", "<PERF> <Engine> ", "<DEBUG> <Net> "};
    if (!file_) {
        return;
    }
    Stamp stamp = world_.StampNow(Kind::kText, process_.Number(), thread);
    const std::string prefix = HeaderNow(thread);
    const std::string body = kLevels[static_cast<std::size_t>(world_.random.Below(kLevels.size()))];
    stamp.header = prefix + body;
    const std::uint32_t serial = world_.truth.Add(std::move(stamp));
    Store(thread, prefix, body + "#" + std::to_string(serial) + "; " + message);
}

void TextLog::RawLine(std::uint32_t thread) {
    Stamp stamp = world_.StampNow(Kind::kText, process_.Number(), thread);
    stamp.header = HeaderNow(thread) + "<INFO> <Wire> ";
    const std::string prefix = stamp.header;
    const std::uint32_t serial = world_.truth.Add(std::move(stamp));
    std::string payload = "#" + std::to_string(serial) + "; " + Message();
    if (world_.random.OneIn(40)) {
        payload.append(4200, 'x');
    }
    process_.Delayed(world_.device.StoreDelay(), thread, [this, thread, prefix, payload] {
        if (file_) {
            Store(thread, prefix, payload);
        }
    });
}

Output TextLog::Writer() {
    return [this](std::uint32_t thread) {
        world_.random.OneIn(10) ? RawLine(thread) : Line(thread);
        if (world_.random.OneIn(400) && file_) {
            Flush(false);
        }
    };
}

} // namespace Simulator
