#include "tests/simulator/World.h"

#include <algorithm>
#include <ctime>
#include <fstream>
#include <utility>

#include <fcntl.h>
#include <sys/stat.h>

namespace Simulator {

namespace {

constexpr std::int64_t kYear2026 = 1'767'225'600 * kSecond;
constexpr std::int64_t kDay = 24 * kHour;

} // namespace

Device::Device(Random& random, Delays delays) : random_(random), delays_(delays) {
    now_ = random_.OneOf({20 * kSecond, 40 * kMinute, 30 * kDay});
    now_ += random_.Below(kMinute);
    offset_ = kYear2026 + random_.Below(300 * kDay) - now_;
    clocks_.emplace(boot_, offset_);
    fixedDate_ = random_.OneOf({946'684'800, 1'514'764'800, 1'609'459'200}) * kSecond;
}

std::vector<Device::Pending>::iterator Device::NextDue(int process) {
    auto next = pending_.end();
    for (auto each = pending_.begin(); each != pending_.end(); ++each) {
        if ((process == 0 || each->process == process) && (next == pending_.end() || each->due < next->due)) {
            next = each;
        }
    }
    return next;
}

void Device::Run(std::vector<Pending>::iterator next) {
    now_ = std::max(now_, next->due);
    const std::function<void()> action = std::move(next->action);
    pending_.erase(next);
    action();
}

void Device::Pass(std::int64_t nanoseconds) {
    const std::int64_t until = now_ + nanoseconds;
    for (auto next = NextDue(0); next != pending_.end() && next->due <= until; next = NextDue(0)) {
        Run(next);
    }
    now_ = std::max(now_, until);
}

void Device::After(std::int64_t nanoseconds, int process, std::function<void()> action) {
    pending_.push_back({now_ + nanoseconds, process, std::move(action)});
}

void Device::Settle(int process) {
    for (auto next = NextDue(process); next != pending_.end(); next = NextDue(process)) {
        Pass(std::max<std::int64_t>(next->due - now_, 0));
    }
}

void Device::Drop(int process) {
    std::erase_if(pending_, [process](const Pending& each) { return each.process == process; });
}

void Device::SetClock(std::int64_t forward) {
    offset_ += forward;
    clocks_.emplace(boot_, offset_);
}

void Device::Reboot(std::int64_t downTime, bool hasClock) {
    const std::int64_t wall = Wall() + downTime;
    pending_.clear();
    now_ = 2 * kSecond + random_.Below(30 * kSecond);
    offset_ = hasClock ? wall : fixedDate_;
    clocks_.emplace(boot_ + 1, offset_);
    ++boot_;
}

std::int64_t Device::DateDelay() {
    if (delays_.longestDate == 0) {
        return 0;
    }
    const bool isHeldUp = random_.OneIn(delays_.oneDateIn);
    const std::int64_t delay =
        isHeldUp ? random_.Below(delays_.longestDate) : random_.Between(300, 30 * kMicrosecond);
    longestDateDelay_ = std::max(longestDateDelay_, delay);
    return delay;
}

std::int64_t Device::StoreDelay() {
    return random_.OneIn(delays_.oneStoreIn) ? random_.Between(1, delays_.longestStore) : 0;
}

std::int64_t Device::SyncDelay() {
    return delays_.longestSync > 0 && random_.OneIn(3) ? random_.Below(delays_.longestSync) : 0;
}

std::uint32_t Truth::Add(Stamp stamp) {
    stamps.push_back(std::move(stamp));
    return static_cast<std::uint32_t>(stamps.size());
}

const Stamp* Truth::Of(std::uint64_t serial) const {
    return serial >= 1 && serial <= stamps.size() ? &stamps[static_cast<std::size_t>(serial) - 1] : nullptr;
}

Files::Handle Files::Open(const std::string& name) {
    Handle& file = files_[name];
    if (!file) {
        file = std::make_shared<File>();
    }
    return file;
}

void Files::Put(const std::string& name, File file) {
    files_[name] = std::make_shared<File>(std::move(file));
}

void Files::Rename(const std::string& from, const std::string& to) {
    const auto found = files_.find(from);
    if (found != files_.end()) {
        files_[to] = found->second;
        files_.erase(from);
    }
}

void Files::Store(const std::string& folder) const {
    for (const auto& [name, file] : files_) {
        const std::string path = std::string(folder).append("/").append(name);
        std::ofstream out(path, std::ios::binary);
        out.write(file->content.data(), static_cast<std::streamsize>(file->content.size()));
        out.close();
        timespec times[2]{};
        times[0].tv_sec = times[1].tv_sec = static_cast<std::time_t>(file->modified / kSecond);
        times[0].tv_nsec = times[1].tv_nsec = static_cast<long>(file->modified % kSecond);
        ::utimensat(AT_FDCWD, path.c_str(), times, 0);
    }
}

World::World(std::uint64_t seed, std::string_view scenario, Delays delays)
    : random(seed, scenario), device(random, delays) {}

Stamp World::StampNow(Kind kind, int process, std::uint32_t thread) const {
    return {kind, device.Wall(), device.Now(), thread, process, device.Boot(), {}};
}

} // namespace Simulator
