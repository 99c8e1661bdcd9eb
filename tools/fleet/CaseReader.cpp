#include "tools/fleet/CaseReader.h"

#include "catalogue/Marks.h"
#include "tools/base/ContentHash.h"
#include "tools/base/CounterClock.h"
#include "tools/base/OwnOutput.h"
#include "tools/base/Text.h"
#include "tools/base/WallClock.h"
#include "tools/compare/Profile.h"
#include "tools/story/Statistics.h"
#include "tools/story/Story.h"

#include <array>
#include <set>
#include <tuple>
#include <unordered_map>
#include <utility>

namespace NimaPost {

namespace {

/// What leads to a crash shows in the minute before it.
constexpr std::int64_t kBeforeCrash = 60 * kSecond;
/// Firmware says some hundred things; what has more than this builds its messages from something else than
/// numbers.
constexpr std::size_t kMostMessages = 1000;
constexpr std::size_t kLongestMessage = 300;
constexpr std::size_t kMostCrashMessages = 500;

constexpr std::array<const char*, kEventKinds> kKinds{"text", "binary", "ring", "record"};

/// Valid UTF-8, and not endless.
std::string Clean(std::string_view text) {
    text = text.substr(0, kLongestMessage);
    // No half of a character.
    std::size_t end = text.size();
    while (end > 0 && (static_cast<unsigned char>(text[end - 1]) & 0xC0) == 0x80) {
        --end;
    }
    const bool isCut =
        text.size() == kLongestMessage && end > 0 && (static_cast<unsigned char>(text[end - 1]) & 0x80) != 0;
    return ToUtf8(isCut ? text.substr(0, end - 1) : text);
}

template <class Value>
OptionalNumber NumberOf(const std::optional<Value>& value) {
    return value ? OptionalNumber(static_cast<std::int64_t>(*value)) : std::nullopt;
}

std::optional<std::string> TextOf(std::string_view text) {
    return text.empty() ? std::nullopt : std::optional(ToUtf8(text));
}

std::string HashOf(const std::vector<std::string>& texts) {
    ContentHash hash;
    for (const std::string& text : texts) {
        hash.AddWhole(text);
    }
    return hash.Hexadecimal();
}

class CaseReading {
  public:
    CaseReading(const Story& story, CaseData& data) : story_(story), data_(data) {
        near_.resize(story.Crashes().size());
    }

    void Run() {
        story_.ForEach([&](const TimelineEvent& event) {
            counts_.Take(event);
            if (event.kind == EventKind::kText && !event.continued && !event.IsRest() &&
                !event.text.empty()) {
                TakeMessage(event);
            }
            return true;
        });
        data_.first = TimeOf(counts_.first);
        data_.last = TimeOf(counts_.last);
        Files();
        Processes();
        Counts();
        for (std::size_t i = 0; i < story_.Crashes().size(); ++i) {
            data_.crashes.push_back(CrashOf(story_.Crashes()[i], near_[i]));
        }
        data_.findings = story_.AllFindings();
        if (leftOut_) {
            data_.findings.Remark("many-messages", "More than " + std::to_string(kMostMessages) +
                                                       " different messages; later ones are left out.");
        }
    }

  private:
    TimeText TimeOf(const std::optional<std::int64_t>& time) const {
        return time && story_.Time().HasWall() ? TimeText(WallTimeIso(*time)) : std::nullopt;
    }

    void TakeMessage(const TimelineEvent& event) {
        const auto [key, said] = FindMessage(static_cast<std::int64_t>(event.process.value_or(0)), event);
        if (said == nullptr) {
            return;
        }
        if (said->count++ == 0 && key->text != event.text) {
            said->example = Clean(event.text);
        }
        for (std::size_t i = 0; i < near_.size(); ++i) {
            if (near_[i].size() < kMostCrashMessages && IsBefore(event, story_.Crashes()[i])) {
                near_[i].insert(key);
            }
        }
    }

    using Found = std::pair<const MessageKey*, CaseData::Said*>;

    /// Most lines say what others have said, so they are looked for without making a key. Null where there is
    /// no room for another message.
    Found FindMessage(std::int64_t process, const TimelineEvent& event) {
        const std::string text = WithoutNumbers(event.text.substr(0, kLongestMessage));
        lookUp_.assign(reinterpret_cast<const char*>(&process), sizeof process);
        for (const std::string_view part : {event.level, event.name, std::string_view(text)}) {
            lookUp_ += part;
            lookUp_ += '\0';
        }
        const auto known = known_.find(lookUp_);
        if (known != known_.end()) {
            return known->second;
        }
        if (data_.messages.size() >= kMostMessages) {
            leftOut_ = true;
            return {};
        }
        MessageKey key{Clean(event.level), Clean(event.name), Clean(text)};
        const auto kept = data_.messages.try_emplace({process, std::move(key)}).first;
        return known_[lookUp_] = {&kept->first.second, &kept->second};
    }

    static bool IsBefore(const TimelineEvent& event, const Crash& crash) {
        const bool isOther = (event.process && crash.process && event.process != crash.process) ||
                             (event.boot && crash.boot && event.boot != crash.boot);
        return !isOther && event.time && crash.time && *event.time <= *crash.time &&
               *event.time >= *crash.time - kBeforeCrash;
    }

    void Files() {
        for (const FolderFile& file : story_.Files()) {
            const auto events = counts_.files.find(file.index);
            const char* const state = file.unusable                   ? "unusable"
                                      : !file.findings.damage.empty() ? "damaged"
                                      : file.row == nullptr           ? "skipped"
                                                                      : "ok";
            data_.files.push_back(
                {ToUtf8(file.name), std::string(file.row != nullptr ? file.row->kind : "other"),
                 static_cast<std::int64_t>(file.bytes),
                 events != counts_.files.end() ? static_cast<std::int64_t>(events->second) : 0, state});
        }
    }

    void Processes() {
        for (const ProcessFacts& facts : story_.Time().AllProcesses().All()) {
            const CaseData::Process process{
                NumberOf(facts.boot), TimeOf(facts.first),
                TimeOf(facts.last),   static_cast<std::int64_t>(facts.threads.size()),
                facts.evidence,       std::string(DoubtOf(facts)),
                DoubtsInCodes(facts)};
            data_.processes.push_back(process);
            if (!process.boot) {
                continue;
            }
            CaseData::Boot& boot = data_.boots[*process.boot];
            ++boot.processes;
            // As texts they have the order of time.
            if (process.first && (!boot.first || *process.first < *boot.first)) {
                boot.first = process.first;
            }
            if (process.last && (!boot.last || *process.last > *boot.last)) {
                boot.last = process.last;
            }
        }
    }

    void Counts() {
        std::map<std::tuple<std::string, std::string, std::string>, std::uint64_t> all;
        for (const auto& [key, count] : counts_.names) {
            const std::string kind = kKinds.at(static_cast<std::size_t>(key.first));
            const std::string name = Clean(key.second);
            std::uint64_t levelled = 0;
            for (const auto& [level, number] : count.levels) {
                all[{kind, name, Clean(level)}] += number;
                levelled += number;
            }
            if (levelled < count.all) {
                all[{kind, name, {}}] += count.all - levelled;
            }
        }
        for (const auto& [key, count] : all) {
            const auto& [kind, name, level] = key;
            data_.counts.push_back({kind, name, level, static_cast<std::int64_t>(count)});
        }
    }

    CaseCrash CrashOf(const Crash& crash, const std::set<const MessageKey*>& messages) const {
        CaseCrash made;
        made.title = ToUtf8(crash.title);
        made.time = TimeOf(crash.time);
        made.assumed = crash.certainty.assumed;
        made.certainty = crash.certainty;
        made.boot = NumberOf(crash.boot);
        made.process = NumberOf(crash.process);
        if (crash.process) {
            const ProcessFacts& facts = story_.Time().AllProcesses()[*crash.process];
            made.bootDoubt = DoubtOf(facts);
            made.processDoubt = facts.recordsProbable ? "probably" : "";
        }
        made.processId = NumberOf(crash.processId);
        TakeFailure(crash, made);
        TakeMarks(crash, made);
        std::set<MessageKey> sorted;
        for (const MessageKey* key : messages) {
            sorted.insert(*key);
        }
        made.messages.assign(sorted.begin(), sorted.end());
        return made;
    }

    /// What a component reported tells the cause; otherwise the frames do.
    static void TakeFailure(const Crash& crash, CaseCrash& made) {
        using namespace Nima::Catalogue;
        const StackTrace* const stack = crash.stacks.empty() ? nullptr : &crash.stacks.front()->content;
        if (crash.log != nullptr) {
            const CrashLog& log = crash.log->log;
            made.code = TextOf(log.Field(kErrorCode));
            made.file = TextOf(log.Field(kFileName));
            made.line = TextOf(log.Field(kLineNumber));
        }
        if (stack != nullptr && stack->host && !made.file) {
            made.code = stack->host->code ? std::optional(Hex32(*stack->host->code)) : made.code;
            made.file = TextOf(stack->host->file);
            made.line = std::to_string(stack->host->line);
        }
        if (stack != nullptr) {
            made.signature = SignatureOfStack(stack->frames, made.title);
            for (const std::string& line : stack->frames) {
                made.lines.push_back(ToUtf8(line));
            }
        }
        if (made.file) {
            made.signature.text =
                SignatureOfReport(made.code.value_or(""), *made.file, made.line.value_or(""));
        } else if (stack == nullptr) {
            made.signature.text = made.title + ", " + SignatureOfReport(made.code.value_or(""), {}, {});
        }
        made.signature.text = ToUtf8(made.signature.text);
    }

    void TakeMarks(const Crash& crash, CaseCrash& made) const {
        for (const StackTraceSource::Held* const held : crash.stacks) {
            std::vector<std::string> texts = held->content.frames;
            texts.insert(texts.begin(), story_.Files()[held->file].plainName);
            made.marks.push_back("stack " + HashOf(texts));
        }
        if (crash.log == nullptr) {
            return;
        }
        const CrashLog& log = crash.log->log;
        if (log.date && log.ticks) {
            made.marks.push_back("log " + std::to_string(log.date->second) + "." +
                                 std::to_string(log.date->microsecondsCut) + " " +
                                 std::to_string(*log.ticks));
            return;
        }
        // Its head is damaged: what it says has to do.
        std::vector<std::string> texts;
        for (const auto& [label, value] : log.failure) {
            texts.push_back(label);
            texts.push_back(value);
        }
        made.marks.push_back("log " + HashOf(texts));
    }

    const Story& story_;
    CaseData& data_;
    EventCounts counts_;
    std::unordered_map<std::string, Found> known_;
    std::string lookUp_;
    std::vector<std::set<const MessageKey*>> near_; ///< of each crash
    bool leftOut_ = false;
};

} // namespace

std::string ContentOf(Device& device) {
    constexpr std::size_t kPiece = 1 << 16;
    ContentHash hash;
    std::vector<char> piece(kPiece);
    for (EvidenceFile& file : device.files) {
        const bool wasOpen = file.content.has_value();
        std::string reason;
        auto input = file.Open(reason);
        std::size_t size = input ? input->ReadAt(0, piece) : 0;
        // A report or a database in the folder makes it no other case.
        const std::string_view front(piece.data(), size);
        if (!IsOwnOutput(front) && !IsOwnDatabase(front)) {
            hash.AddWhole(file.plainName);
            for (std::uint64_t at = 0; size > 0; size = input->ReadAt(at, piece)) {
                hash.Add({piece.data(), size});
                at += size;
            }
            hash.AddWhole(input ? "" : "cannot be opened");
        }
        if (wasOpen) {
            file.content = std::move(input);
        }
    }
    return hash.Hexadecimal();
}

bool ReadCase(Device& device, const Names& names, CaseData& data, std::string& problem) {
    Story story(names);
    if (!story.Read(device, data.path, problem)) {
        return false;
    }
    TellCase(story, data);
    return true;
}

void TellCase(const Story& story, CaseData& data) {
    CaseReading(story, data).Run();
}

} // namespace NimaPost
