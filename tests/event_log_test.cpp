/// Events and their payloads, as the host's callbacks receive them.

#include "tests/support/OwnRing.h"
#include "tests/support/Sandbox.h"

#include <atomic>
#include <cerrno>
#include <cstring>
#include <mutex>
#include <sstream>
#include <stdexcept>
#include <thread>
#include <tuple>

#include <pthread.h>
#include <unistd.h>

#include <Diagnostics/EventLog.h>
#include <Diagnostics/TestHooksApi.h>

namespace Nima::Testing {

using namespace Nima::Common::System::OS::Diagnostics;

namespace {

struct Event {
    EventTypes type;
    std::wstring source;
    unsigned long id;
    std::wstring file;
    int line;
    std::wstring payload;
};

std::vector<Event> g_Events;
std::vector<std::string> g_Records;
unsigned long g_Result = 0;

std::wstring TextOf(const wchar_t* text) {
    return text != nullptr ? text : L"(null)";
}

unsigned long OnEvent(EventTypes type, const wchar_t* source, unsigned long id, const wchar_t* file, int line,
                      const wchar_t* payload) {
    g_Events.push_back({type, TextOf(source), id, TextOf(file), line, TextOf(payload)});
    return g_Result;
}

unsigned long OnVantorEvent(EventTypes /*type*/, unsigned long size, unsigned char* record) {
    g_Records.emplace_back(reinterpret_cast<char*>(record), size);
    return g_Result;
}

std::string Xml(const EventLogPayload& payload) {
    std::stringstream out;
    payload.SerializeToXml(out);
    return out.str();
}

} // namespace

class Events : public Sandbox {
  protected:
    void SetUp() override {
        Sandbox::SetUp();
        TakeInternalEvents(); // builds the rings
        SetupEventLogCallbacks(OnEvent, OnVantorEvent);
    }
};

TEST_F(Events, AWideEventReachesTheHostUnchanged) {
    const PayloadEntry entries[] = {{L"a", L"1"}, {L"b<&", nullptr}};
    EXPECT_EQ(LogEvent(1, L"source", 0x493801, L"file.c", -7, entries, 2), 1);
    EXPECT_EQ(errno, 0);
    EXPECT_EQ(LogEvent(-3, nullptr, -1, nullptr, 0, entries, 0), 1);
    ASSERT_EQ(g_Events.size(), 2U);
    EXPECT_EQ(g_Events[0].payload, L"<a>1</a><b<&></b<&>");
    EXPECT_EQ(g_Events[0].source + g_Events[0].file, L"sourcefile.c");
    EXPECT_EQ(g_Events[0].line, -7);
    EXPECT_EQ(g_Events[0].id, 0x493801U);
    EXPECT_EQ(g_Events[1].type, -3);
    EXPECT_EQ(g_Events[1].id, 0xFFFFFFFFU);
    EXPECT_EQ(g_Events[1].payload, L"(null)");
    g_Result = 5;
    EXPECT_EQ(LogEvent(1, L"s", 1, L"f", 1, entries, 1), 0);
    EXPECT_EQ(errno, 5);
}

TEST_F(Events, OnlyOneCombinationIsRefused) {
    const auto log = [](EventTypes type, const wchar_t* source, long id, long count) {
        return LogEvent(type, source, id, L"f", 1, nullptr, count);
    };
    EXPECT_EQ(log(2, L"s", 5, 0), 0);
    EXPECT_EQ(errno, EINVAL);
    EXPECT_TRUE(g_Events.empty());
    EXPECT_EQ(log(1, L"s", 5, 0), 1);
    EXPECT_EQ(log(2, nullptr, 5, 0), 1);
    EXPECT_EQ(log(2, L"s", 0, 0), 1);
    EXPECT_EQ(log(2, L"s", 5, -1), 1);
    EXPECT_EQ(g_Events.size(), 4U);
}

TEST_F(Events, PayloadTextIsCutAndANullKeyLeavesNone) {
    const std::wstring large(2000, L'v');
    const PayloadEntry entries[] = {{L"k", large.c_str()}, {nullptr, L"v"}};
    wchar_t buffer[16] = L"untouched";
    EXPECT_EQ(EventLog::BuildStandardEventLogPayload(entries, 1, buffer, 16), 2007);
    EXPECT_EQ(std::wstring(buffer), L"<k>" + std::wstring(12, L'v'));
    EXPECT_EQ(EventLog::BuildStandardEventLogPayload(entries, 2, buffer, 16), 0);
    EXPECT_EQ(EventLog::BuildStandardEventLogPayload(nullptr, 2, buffer, 16), 0);
    EXPECT_EQ(EventLog::BuildStandardEventLogPayload(entries, -1, buffer, 16), 0);
    EXPECT_EQ(LogEvent(1, L"s", 1, L"f", 1, entries, 1), 1);
    EXPECT_EQ(LogEvent(1, L"s", 1, L"f", 1, entries, 2), 1);
    EXPECT_EQ(g_Events[0].payload, L"<k>" + std::wstring(1020, L'v'));
    EXPECT_EQ(g_Events[1].payload, L"(null)");
    std::vector<PayloadEntry> many(10000, PayloadEntry{L"k", L"v"});
    EXPECT_EQ(LogEvent(1, L"s", 1, L"f", 1, many.data(), 10000), 1);
    EXPECT_EQ(g_Events[2].payload.size(), 1023U);
}

TEST_F(Events, PayloadsSerialiseToXml) {
    EventLogPayload payload;
    EXPECT_EQ(Xml(payload), "<Payload></Payload>");
    payload.AddHashedData("a", "1");
    payload.AddHashedData(nullptr, "x");
    payload.AddHashedData("x", nullptr);
    EXPECT_EQ(Xml(payload), "<Payload><Debug><a>1</a></Debug></Payload>");
    payload.AddNonHashedData("<&", "2");
    payload.AddNonHashedData("<&", "2");
    EXPECT_EQ(payload.GetNumberOfDataElements(), 3);
    EXPECT_EQ(Xml(payload), "<Payload><Debug><a>1</a></Debug><Other><<&>2</<&><<&>2</<&></Other></Payload>");
    EXPECT_EQ(Xml(SimpleDiagnosticPayload("h", nullptr)),
              "<Payload><Debug><Context>h</Context></Debug></Payload>");
    std::stringstream out;
    EventLogPayload::AddDataToSection(out, nullptr, {{"k", "v"}});
    EXPECT_TRUE(out.fail());
    EXPECT_EQ(out.str(), "<");
}

TEST_F(Events, ARecordIsToTheByte) {
    SimpleDiagnosticPayload payload("hash me", "plain");
    payload.AddHashedData("key", std::string(300, 'v').c_str());
    errno = 0;
    EXPECT_EQ(EventLog::LogEvent(7, "a source name of more than 31 characters", 0x493801, payload), 1);
    ASSERT_EQ(g_Records.size(), 1U);
    const std::string& record = g_Records[0];
    ASSERT_EQ(record.size(), 56U + 3 * 256);
    const std::uint32_t words[] = {824, 1, 7, 0x493801, 32, 768};
    for (std::size_t i = 0; i < 6; ++i) {
        EXPECT_EQ(WordAt(record, 4 * i), words[i]) << i;
    }
    EXPECT_EQ(record.substr(24, 32), std::string("a source name of more than 31 c") + '\0');
    const auto entry = [&](std::size_t n, std::uint32_t type, std::uint32_t length, const std::string& text) {
        const std::string bytes = record.substr(56 + 256 * n, 256);
        EXPECT_EQ(WordAt(bytes, 0), 256U);
        EXPECT_EQ(WordAt(bytes, 4), type);
        EXPECT_EQ(WordAt(bytes, 8), length);
        EXPECT_EQ(bytes.substr(12), text + std::string(244 - text.size(), '\0'));
    };
    entry(0, 1, 15, "Context,hash me");
    entry(1, 1, 304, "key," + std::string(239, 'v'));
    entry(2, 2, 13, "Context,plain");

    std::vector<VantorCallbackStruct> small(15);
    small[0].totalSize = 823;
    EXPECT_EQ(payload.SerializeToCallback(small.data()), 824);
    EXPECT_EQ(errno, ENOMEM);
    small[0].totalSize = 0;
    const std::vector<VantorCallbackStruct> untouched(15);
    EXPECT_EQ(std::memcmp(small.data(), untouched.data(), 15 * sizeof(VantorCallbackStruct)), 0);
    EventLogPayload empty;
    EXPECT_EQ(EventLog::LogEvent(7, nullptr, 1, empty), 1);
    EXPECT_EQ(g_Records[1].size(), 56U);
    EventLogPayload many;
    for (int i = 0; i < 10000; ++i) {
        many.AddNonHashedData("k", "v");
    }
    EXPECT_EQ(EventLog::LogEvent(7, "s", 1, many), 1);
    EXPECT_EQ(g_Records[2].size(), 56U + 2560000);
    g_Result = 9;
    errno = 77;
    EXPECT_EQ(EventLog::LogEvent(7, "s", 1, empty), 0);
    EXPECT_EQ(errno, 0) << "the callback's result is not errno's here";
}

TEST_F(Events, TestersHooksLogBothKinds) {
    EXPECT_EQ(XXX_TestNativeEventLogFeature(1, L"s", 2, L"f", 3), 1);
    ASSERT_EQ(g_Events.size(), 1U);
    EXPECT_EQ(g_Events[0].source + g_Events[0].file + g_Events[0].payload, L"sf(null)");
    EXPECT_EQ(std::tuple(g_Events[0].type, g_Events[0].id, g_Events[0].line), std::tuple(1, 2UL, 3));
    EXPECT_EQ(XXX_TestNativeEventVantorLogFeature(4, 5, std::wstring(100, L's').c_str(), L"hashed", L"other"),
              1);
    EXPECT_EQ(XXX_TestNativeEventVantorLogFeature(4, 5, nullptr, nullptr, nullptr), 1);
    ASSERT_EQ(g_Records.size(), 2U);
    EXPECT_EQ(g_Records[0].size(), 56U + 512);
    EXPECT_EQ(g_Records[0].substr(24, 32), std::string(31, 's') + '\0');
    EXPECT_EQ(g_Records[0].substr(56 + 12, 15), std::string("Context,hashed") + '\0');
    EXPECT_EQ(g_Records[0].substr(312 + 12, 14), std::string("Context,other") + '\0');
    EXPECT_EQ(g_Records[1].size(), 56U + 512);
    EXPECT_EQ(g_Records[1].substr(56 + 12, 9), std::string("Context,") + '\0');
}

TEST_F(Events, BothCallbacksHaveToBeInstalled) {
    EventLogPayload payload;
    SetupEventLogCallbacks(nullptr, OnVantorEvent);
    EXPECT_EQ(LogEvent(1, L"s", 1, L"f", 1, nullptr, 0), 0);
    EXPECT_EQ(errno, 19);
    EXPECT_EQ(EventLog::DoVantorCallback(1, 1, 0, nullptr), 19U);
    EXPECT_EQ(EventLog::LogEvent(1, "s", 1, payload), 0);
    SetupEventLogCallbacks(OnEvent, nullptr);
    EXPECT_EQ(EventLog::LogEvent(1, "s", 1, payload), 0);
    EXPECT_EQ(EventLog::DoVantorCallback(1, 1, 0, nullptr), 19U);
    EXPECT_TRUE(g_Records.empty());
    EXPECT_TRUE(TakeInternalEvents().empty()) << "nothing was called";
}

TEST_F(Events, WhatACallbackThrowsGoesNoFurther) {
    const auto throwing = [](EventTypes, const wchar_t*, unsigned long id, const wchar_t*, int,
                             const wchar_t*) -> unsigned long {
        if (id == 1) {
            throw std::runtime_error("the host's trouble");
        }
        throw 42;
    };
    const auto throwingToo = [](EventTypes, unsigned long, unsigned char*) -> unsigned long { throw "text"; };
    SetupEventLogCallbacks(throwing, throwingToo);
    EXPECT_EQ(LogEvent(1, L"s", 1, L"f", 1, nullptr, 0), 1);
    EXPECT_EQ(errno, 0);
    EXPECT_EQ(LogEvent(6, nullptr, 2, L"f", 1, nullptr, 0), 1);
    EventLogPayload payload;
    EXPECT_EQ(EventLog::LogEvent(8, "s", 3, payload), 1);
    // Before and after each, with type, id and 0 or 1.
    const auto events = TakeInternalEvents();
    ASSERT_EQ(events.size(), 6U);
    const std::uint32_t expected[][5] = {{9, 1, 1, 0, 0}, {9, 1, 1, 1, 0}, {9, 6, 2, 0, 0},
                                         {9, 6, 2, 1, 0}, {9, 8, 3, 0, 0}, {9, 8, 3, 1, 0}};
    for (std::size_t i = 0; i < 6; ++i) {
        EXPECT_EQ(std::memcmp(events[i].words, expected[i], sizeof(expected[i])), 0) << i;
    }
}

// Events from many threads reach the host one at a time, while another thread replaces the callbacks.
TEST_F(Events, EventsComeOneAtATimeWhileCallbacksAreExchanged) {
    static std::atomic<int> inside{0};
    static std::atomic<int> received{0};
    static std::atomic<bool> overlapped{false};
    static const auto receive = [](useconds_t pause) {
        overlapped = overlapped || inside.fetch_add(1) != 0;
        ++received;
        ::usleep(pause);
        inside.fetch_sub(1);
        return 0UL;
    };
    const auto count = [](EventTypes, const wchar_t*, unsigned long, const wchar_t*, int, const wchar_t*) {
        return receive(0);
    };
    const auto same = [](EventTypes, const wchar_t*, unsigned long, const wchar_t*, int, const wchar_t*) {
        return receive(100);
    };
    SetupEventLogCallbacks(count, OnVantorEvent);
    std::atomic<int> logged{0};
    Threads threads = StartTogether(6, [&](int) {
        for (int i = 0; i < 200; ++i) {
            logged += LogEvent(1, L"s", i, L"f", 1, nullptr, 0);
        }
    });
    for (int i = 0; i < 100; ++i) {
        SetupEventLogCallbacks(same, OnVantorEvent);
        SetupEventLogCallbacks(count, OnVantorEvent);
    }
    threads.clear();
    EXPECT_EQ(logged.load(), 1200);
    EXPECT_EQ(received.load(), 1200);
    EXPECT_FALSE(overlapped.load());
}

TEST_F(Events, ACancelledCallbackGivesTheLockBack) {
    const auto sleeping = [](EventTypes, const wchar_t*, unsigned long, const wchar_t*, int, const wchar_t*) {
        for (;;) {
            ::pthread_testcancel();
        }
        return 0UL;
    };
    SetupEventLogCallbacks(sleeping, OnVantorEvent);
    std::thread victim([] { LogEvent(1, L"s", 1, L"f", 1, nullptr, 0); });
    ::usleep(20000);
    ASSERT_EQ(::pthread_cancel(victim.native_handle()), 0);
    victim.join();
    SetupEventLogCallbacks(OnEvent, OnVantorEvent);
    EXPECT_EQ(LogEvent(1, L"s", 1, L"f", 1, nullptr, 0), 1);
}

} // namespace Nima::Testing
