#include "tools/symbols/Resolution.h"

#include "tools/base/FindingsJson.h"
#include "tools/base/Json.h"
#include "tools/base/Text.h"

#include <algorithm>
#include <array>
#include <filesystem>

namespace NimaPost {

namespace {

constexpr std::array<std::string_view, 2> kEvidence{"votes", "manifest"};
/// Problems of one kind that are told one by one.
constexpr std::size_t kMostTold = 8;

std::string FileName(const std::string& path) {
    return std::filesystem::path(path).filename().string();
}

Json CallJson(const Call& call) {
    return {{"function", call.function.empty() ? Json() : Json(ToUtf8(call.function))},
            {"file", call.file.empty() ? Json() : Json(ToUtf8(call.file))},
            {"line", call.line == 0 ? Json() : Json(call.line)},
            {"inlined", call.inlined}};
}

Json ModuleJson(const PlacedModule& module) {
    return {{"symbols", ToUtf8(module.symbols)},
            {"lines", module.lines.empty() ? Json() : Json(ToUtf8(module.lines))},
            {"build_id", module.buildId.empty() ? Json() : Json(module.buildId)},
            {"build_confirmed", module.confirmed},
            {"base", Hex(module.base)},
            {"base_by", EvidenceInWords(module.evidence)},
            {"votes", module.votes},
            {"named_frames", module.named}};
}

std::string CallInWords(const Call& call) {
    std::string text = call.function.empty() ? "a function without a name" : Printable(call.function);
    if (call.line != 0) {
        text += " at " + Printable(call.file) + ":" + std::to_string(call.line);
    }
    return text + (call.inlined ? ", inlined in" : "");
}

/// Text or nothing, as `CallJson` writes it.
std::string TextIn(const Json& member) {
    return member.is_string() ? member.get<std::string>() : std::string();
}

Resolution ResolutionFrom(const Json& json) {
    Resolution resolution;
    for (const Json& each : json.at("modules")) {
        PlacedModule module;
        module.symbols = each.at("symbols");
        module.lines = TextIn(each.at("lines"));
        module.buildId = TextIn(each.at("build_id"));
        module.confirmed = each.at("build_confirmed");
        ParseNumber(each.at("base").get<std::string>(), module.base);
        module.votes = each.at("votes");
        module.named = each.at("named_frames");
        module.evidence =
            each.at("base_by") == kEvidence.front() ? BaseEvidence::kVotes : BaseEvidence::kManifest;
        resolution.modules.push_back(std::move(module));
    }
    for (const Json& frame : json.at("frames")) {
        auto& candidates = resolution.frames.emplace_back();
        for (const Json& each : frame) {
            Candidate& candidate = candidates.emplace_back();
            candidate.module = each.at("module");
            for (const Json& call : each.at("calls")) {
                candidate.calls.push_back(
                    {TextIn(call.at("function")), TextIn(call.at("file")),
                     call.at("line").is_null() ? 0 : call.at("line").get<std::uint64_t>(),
                     call.at("inlined")});
            }
        }
    }
    return resolution;
}

} // namespace

std::string_view EvidenceInWords(BaseEvidence evidence) {
    return kEvidence[static_cast<std::size_t>(evidence)];
}

std::size_t Resolution::Resolved() const {
    return static_cast<std::size_t>(
        std::count_if(frames.begin(), frames.end(), [](const auto& frame) { return !frame.empty(); }));
}

Json ResolutionJson(const Resolution& resolution) {
    Json modules = Json::array();
    for (const PlacedModule& module : resolution.modules) {
        modules.push_back(ModuleJson(module));
    }
    Json frames = Json::array();
    for (const auto& candidates : resolution.frames) {
        Json frame = Json::array();
        for (const Candidate& candidate : candidates) {
            Json calls = Json::array();
            for (const Call& call : candidate.calls) {
                calls.push_back(CallJson(call));
            }
            frame.push_back({{"module", candidate.module}, {"calls", calls}});
        }
        frames.push_back(frame);
    }
    return {{"modules", modules}, {"frames", frames}};
}

std::vector<std::string> FrameInWords(const Resolution& resolution, std::size_t frame) {
    std::vector<std::string> lines;
    const std::vector<Candidate>& candidates = resolution.frames[frame];
    for (const Candidate& candidate : candidates) {
        if (candidates.size() > 1) {
            lines.push_back((lines.empty() ? "either, by " : "or, by ") +
                            Printable(resolution.modules[candidate.module].symbols) + ":");
        }
        for (const Call& call : candidate.calls) {
            lines.push_back(CallInWords(call));
        }
    }
    return lines;
}

void StateResolution(const Resolution& resolution, std::size_t nameless, Findings& findings) {
    for (const PlacedModule& module : resolution.modules) {
        const std::string name = FileName(module.symbols);
        const bool doubtful = module.votes < module.named;
        std::string sentence = name + " was at " + Hex(module.base);
        if (module.evidence == BaseEvidence::kManifest) {
            sentence += ", by the manifest";
        } else {
            sentence += ", by " + std::to_string(module.votes) + " of " + std::to_string(module.named) +
                        " of its frames that have a name";
        }
        sentence += module.confirmed ? "; its build is the one that the evidence names."
                    : doubtful       ? "; it may be of another build, so do not trust its lines."
                                     : ".";
        findings.Remark(doubtful ? "symbols-doubtful" : "symbols-placed", sentence);
    }
    const std::size_t left = resolution.frames.size() - resolution.Resolved();
    if (resolution.modules.empty()) {
        findings.Remark(
            "symbols-no-base",
            "No symbols could be placed: no file's functions fit the names and offsets of the frames.");
    } else if (left != 0) {
        findings.Remark("symbols-unresolved",
                        Counted(left, "frame") + " left as they are: no symbols fit them.");
    }
    if (nameless != 0) {
        findings.Remark("symbols-nameless",
                        Counted(nameless, "unresolved frame") +
                            " without a name, or with one that was cut: a stripped program that exports no "
                            "names can be placed only by a manifest.");
    }
}

void StateFiles(const Resolutions& resolutions, Findings& findings) {
    std::array<std::size_t, 3> told{};
    for (const SymbolProblem& problem : resolutions.problems) {
        const std::string sentence =
            problem.file.empty() ? problem.sentence : problem.file + ": " + problem.sentence + ".";
        if (++told[static_cast<std::size_t>(problem.kind)] > kMostTold) {
            continue;
        }
        switch (problem.kind) {
            case SymbolProblem::Kind::kDamaged:
                findings.Damage("symbols-damaged", sentence);
                break;
            case SymbolProblem::Kind::kOtherBuild:
                findings.Remark("symbols-other-build", sentence);
                break;
            case SymbolProblem::Kind::kUnread:
                findings.Remark("symbols-unread", sentence);
                break;
        }
    }
    for (const std::size_t count : told) {
        if (count > kMostTold) {
            findings.Remark("symbols-more", Counted(count - kMostTold, "more symbol file") + " like these.");
        }
    }
    if (resolutions.files == 0) {
        findings.Remark("symbols-none", "No programs, libraries or debug files in the folders of --symbols.");
    }
}

std::string Packed(const Resolutions& resolutions) {
    Json json{{"files", resolutions.files}, {"traces", Json::array()}, {"problems", Json::array()}};
    for (const Resolution& resolution : resolutions.traces) {
        json["traces"].push_back(ResolutionJson(resolution));
    }
    for (const SymbolProblem& problem : resolutions.problems) {
        json["problems"].push_back({static_cast<int>(problem.kind), problem.file, problem.sentence});
    }
    return json.dump(-1, ' ', false, Json::error_handler_t::replace);
}

std::optional<Resolutions> Unpacked(const std::string& text) {
    try {
        const Json json = Json::parse(text);
        Resolutions resolutions;
        resolutions.files = json.at("files");
        for (const Json& trace : json.at("traces")) {
            resolutions.traces.push_back(ResolutionFrom(trace));
        }
        for (const Json& problem : json.at("problems")) {
            resolutions.problems.push_back(
                {static_cast<SymbolProblem::Kind>(problem.at(0).get<int>()), problem.at(1), problem.at(2)});
        }
        return resolutions;
    } catch (const Json::exception&) {
        return std::nullopt;
    }
}

} // namespace NimaPost
