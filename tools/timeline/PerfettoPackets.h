#pragma once

#include "tools/base/Output.h"
#include "tools/timeline/InternedTexts.h"

#include <cstdint>
#include <functional>
#include <string>
#include <string_view>

namespace NimaPost {

/// The packets of a Perfetto trace, one after the other, as one sequence. All texts must be UTF-8. Tracks and
/// counters have numbers of the caller's, which are unique in the trace and never 0. Times are nanoseconds.
class PerfettoPackets {
  public:
    /// What is told of an event.
    class Annotations {
      public:
        void Text(std::string_view name, std::string_view value);
        /// The same for what many events share.
        void Word(std::string_view name, std::string_view value);
        void Number(std::string_view name, std::uint64_t value);
        /// A number that is shown in hexadecimal digits.
        void Pointer(std::string_view name, std::uint64_t value);

      private:
        friend class PerfettoPackets;
        Annotations(PerfettoPackets& packets, std::string& out) : packets_(packets), out_(out) {}
        template <class Value>
        void Add(std::string_view name, const Value& value);

        PerfettoPackets& packets_;
        std::string& out_;
    };

    /// Writes the packet by which such a file is recognised.
    explicit PerfettoPackets(Output& out);

    /// A JSON value about the trace as a whole.
    void About(std::string_view name, const Json& value);
    /// The same moment on the trace's clock and on the calendar.
    void Date(std::int64_t time, std::int64_t sinceEpoch);

    void Process(std::uint64_t track, std::size_t process, std::string_view title);
    void Thread(std::uint64_t track, std::uint64_t processTrack, std::size_t process, std::size_t thread,
                std::string_view title);
    /// A track of a process for what is of none of its threads.
    void Other(std::uint64_t track, std::uint64_t processTrack, std::string_view title);
    void Counter(std::uint64_t track, std::uint64_t processTrack, std::string_view title);

    void Count(std::uint64_t track, std::int64_t time, std::uint64_t value);
    void Instant(std::uint64_t track, std::int64_t time, std::string_view category, std::string_view title,
                 const std::function<void(Annotations&)>& annotate);

  private:
    /// Appends the text's number or, where it has none, the text itself.
    void AppendInterned(std::string& out, InternedTexts& texts, std::uint32_t table,
                        std::uint32_t numberField, std::uint32_t textField, std::string_view text);
    template <class Fill>
    void Packet(const Fill& fill);
    template <class Fill>
    void Track(std::uint64_t track, std::uint64_t parent, const Fill& fill);
    template <class Fill>
    void Event(std::uint64_t track, std::int64_t time, std::uint64_t type, const Fill& fill);

    Output& out_;
    std::string newTexts_; ///< those that the packet being written refers to and the reader does not know yet
    InternedTexts categories_;
    InternedTexts titles_;
    InternedTexts annotationNames_;
    InternedTexts words_;
    bool first_ = true;
};

} // namespace NimaPost
