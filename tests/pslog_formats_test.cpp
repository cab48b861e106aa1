// pslog, on logs in all forms in which users receive them: the formats of the platform's logger with all modifiers, bug
// reports, and compressed files. Also on logs with texts that would do harm when printed.

#include <log/logprint.h>
#include <zlib.h>
#include <zstd.h>

#include <algorithm>
#include <memory>
#include <nlohmann/json.hpp>
#include <pugixml.hpp>
#include <sstream>
#include <system_error>

#include "log_time.h"
#include "tests/pslog_fixture.h"
#include "text.h"
#include "timeline.h"

namespace {

const char* const MODIFIERS[] = {"uid", "year", "zone", "usec", "epoch", "monotonic", "color", "nsec"};

constexpr unsigned MONOTONIC = 1u << 5;
constexpr time_t SINCE_1970 = 1763719200, SINCE_START = 812;

/// A line as the platform's logger prints it.
std::string formatted(const AndroidLogFormat* format, const LogLine& line, time_t seconds, size_t index,
                      const char* tag = "ParamSet") {
    AndroidLogEntry entry{};
    entry.tv_sec = seconds + static_cast<time_t>(index / 1000);
    entry.tv_nsec = static_cast<long>(index % 1000) * 1000000;
    entry.priority = static_cast<android_LogPriority>(ANDROID_LOG_ERROR + 1 - line.level);
    entry.uid = 1041;
    entry.pid = 812;
    entry.tid = static_cast<int32_t>(line.thread);
    entry.tag = tag;
    entry.tagLen = std::string_view(tag).size();
    entry.message = line.message.data();
    entry.messageLen = line.message.size();
    char room[512];
    size_t size = 0;
    char* text = android_log_formatLogLine(const_cast<AndroidLogFormat*>(format), room, sizeof room, &entry, &size);
    const std::string result(text, size);
    if (text != room) free(text);
    return result;
}

std::string gzipped(const std::string& text) {
    z_stream stream{};
    deflateInit2(&stream, Z_BEST_SPEED, Z_DEFLATED, MAX_WBITS + 16, 8, Z_DEFAULT_STRATEGY);
    std::string result(deflateBound(&stream, text.size()), '\0');
    stream.next_in = reinterpret_cast<Bytef*>(const_cast<char*>(text.data()));
    stream.avail_in = static_cast<uInt>(text.size());
    stream.next_out = reinterpret_cast<Bytef*>(result.data());
    stream.avail_out = static_cast<uInt>(result.size());
    deflate(&stream, Z_FINISH);
    result.resize(stream.total_out);
    deflateEnd(&stream);
    return result;
}

// With a checksum, like the program zstd: without one, some damage cannot be detected.
std::string zstandard(const std::string& text) {
    const std::unique_ptr<ZSTD_CCtx, size_t (*)(ZSTD_CCtx*)> context(ZSTD_createCCtx(), ZSTD_freeCCtx);
    ZSTD_CCtx_setParameter(context.get(), ZSTD_c_checksumFlag, 1);
    std::string result(ZSTD_compressBound(text.size()), '\0');
    result.resize(ZSTD_compress2(context.get(), result.data(), result.size(), text.data(), text.size()));
    return result;
}

}  // namespace

class PslogFormatsTest : public PslogTest {
protected:
    using FormatPointer = std::unique_ptr<AndroidLogFormat, void (*)(AndroidLogFormat*)>;

    static FormatPointer formatOf(const char* name, unsigned modifiers) {
        FormatPointer format(android_log_format_new(), android_log_format_free);
        android_log_setPrintFormat(format.get(), android_log_formatFromString(name));
        for (size_t i = 0; i < std::size(MODIFIERS); ++i) {
            if ((modifiers >> i & 1) == 0) continue;
            android_log_setPrintFormat(format.get(), android_log_formatFromString(MODIFIERS[i]));
        }
        return format;
    }

    std::string logIn(const char* name, unsigned modifiers) const {
        const FormatPointer format = formatOf(name, modifiers);
        // A device's formatter converts times since 1970 to times since the start. The host's prints the times as they
        // are.
        const time_t seconds = (modifiers & MONOTONIC) != 0 ? SINCE_START : SINCE_1970;
        std::string text;
        for (size_t i = 0; i < mLines.size(); ++i) text += formatted(format.get(), mLines[i], seconds, i);
        return text + formatted(format.get(), {3, 9, "12, other: text of ParamSet: E"}, seconds, 0, "Other");
    }

    static std::string tableOf(const std::string& summary) { return summary.substr(summary.find("\n\n")); }
};

TEST_F(PslogFormatsTest, ReadsEveryFormatWithAllModifiers) {
    runStory();
    const std::string expected = tableOf(summaryOf(log(Format::HOST)));
    for (const char* name : {"brief", "time", "threadtime", "long", "tag", "process", "thread"}) {
        for (unsigned modifiers = 0; modifiers < 1u << std::size(MODIFIERS); ++modifiers) {
            const std::string summary = summaryOf(logIn(name, modifiers));
            ASSERT_TRUE(has(summary, " 0 damaged\n")) << name << " " << modifiers << "\n" << summary;
            ASSERT_EQ(tableOf(summary), expected) << name << " " << modifiers;
            const bool times = name[0] == 'l' || std::string_view(name).find("time") != std::string_view::npos;
            ASSERT_EQ(has(summary, "\n812.000 to 812."), times && (modifiers & MONOTONIC) != 0) << summary;
            const bool threads = name[0] == 'l' || std::string_view(name).substr(0, 6) == "thread";
            ASSERT_EQ(has(summary, "no thread ids"), !threads) << name << " " << modifiers;
        }
    }
}

TEST_F(PslogFormatsTest, ReadsEachLineOfABugReportInItsOwnFormat) {
    runStory();
    const std::string whole = log(Format::HOST);
    std::string report =
        "== dumpstate: 2025-11-21 10:00:00\n\n------ SYSTEM LOG (logcat -v threadtime -v uid -d) ------\n";
    report += "--------- beginning of main\n" + logIn("threadtime", 1);
    report += "------ 0.019s was the duration of 'SYSTEM LOG' ------\n  PID   TID CMD\n  812   813 ParamSet: 5 tags\n";
    report += "[ 12.345678] ParamSet: not the store's\n[persist.vendor.cam.log.ps]: [1]\n";
    report += "------ LAST LOGCAT ------\n" + logIn("long", 1 << 6) +
              "DUMP OF SERVICE media.camera:\n\tE ParamSetting: 1, f: x\n";
    const std::string twice = summaryOf(report);
    EXPECT_TRUE(has(twice, " 0 damaged\n")) << twice;
    EXPECT_EQ(tableOf(twice), tableOf(summaryOf(whole + whole)));
}

TEST_F(PslogFormatsTest, ReadsCompressedLogsAndReportsWhereTheyBreakOff) {
    runStory();
    const std::string text = log(Format::BRIEF);
    const std::string expected = summaryOf(text + text);
    std::string (*const compressions[])(const std::string&) = {gzipped, zstandard};
    for (const auto compress : compressions) {
        const std::string file = compress(text);
        EXPECT_EQ(summaryOf(file + file), expected) << "two concatenated files are read as one";
        const auto problemOf = [this](const std::string& of) {
            pslog::TagCounts counts;
            pslog::Interpreter interpreter(counts);
            return read(of, interpreter).problem;
        };
        EXPECT_EQ(problemOf(file), "");
        EXPECT_EQ(problemOf(file + std::string(64, '\0')).empty(), compress == gzipped) << "zeros of a tape";
        for (size_t size = 6; size < file.size(); size += 7) {
            ASSERT_EQ(problemOf(file.substr(0, size)), "it ends in the middle of its compressed data") << size;
        }
        std::string damaged = file;
        damaged[file.size() / 2] ^= 64;
        EXPECT_NE(problemOf(damaged), "");
    }
    for (const char* start : {"PK\x03\x04..", "BZh91AY", "\xFF\xFEV ", "\xFD\x37zXZ"}) {
        EXPECT_THROW(summaryOf(std::string(start) + std::string(8, '\0')), std::runtime_error) << start;
    }
}

TEST_F(PslogFormatsTest, PutsTimesOnOneClock) {
    constexpr int64_t SECOND = 1000000;
    const struct {
        const char* first;
        const char* second;
        int64_t between;
        const char* text;  // how the second time is printed
    } cases[] = {
        {"11-21 10:00:00.999 ", "11-21 10:00:01.001 ", 2000, "11-21 10:00:01.001"},
        {"12-31 23:59:59.500000 ", "01-01 00:00:00.500 ", SECOND, "01-01 00:00:00.500"},
        {"2023-02-28 23:59:59.0 ", "2023-03-01 00:00:00.000 ", SECOND, "2023-03-01 00:00:00.000"},
        {"2024-02-28 23:59:59.000 ", "2024-03-01 00:00:00.000 ", 86401 * SECOND, "2024-03-01 00:00:00.000"},
        {"10-26 02:59:59.000 +0200 ", "10-26 02:00:00.000 +0100 ", SECOND, "10-26 03:00:00.000"},
        {"1763719200.000 ", "1763719200.123456789 ", 123456, "1763719200.123"},
        {"  812.500 ", "  813.250 ", 750000, "813.250"},
    };
    for (const auto& [first, second, between, text] : cases) {
        pslog::TimeParser parser;
        int64_t times[2] = {};
        pslog::Clock clock{};
        pslog::Cursor cursors[] = {{first}, {second}};
        for (const size_t i : {size_t{0}, size_t{1}}) {
            cursors[i].blanks();
            ASSERT_TRUE(parser.take(cursors[i], times[i], clock)) << first << second;
            EXPECT_EQ(cursors[i].rest, "");
        }
        EXPECT_EQ(times[1] - times[0], between) << second;
        EXPECT_EQ(pslog::clockText(times[1], clock), text);
    }
    for (const char* damaged :
         {"13-01 10:00:00.0 ", "02-0x 10:00:00.0 ", "02-01 24:00:00.0 ", "02-01 10:00:00 ", "7 ", "-1.5 "}) {
        pslog::TimeParser parser;
        int64_t time = 0;
        pslog::Clock clock{};
        pslog::Cursor cursor{damaged};
        EXPECT_FALSE(parser.take(cursor, time, clock)) << damaged;
    }
}

TEST_F(PslogFormatsTest, PrintsNoTerminalControlsAndNoInvalidXml) {
    const struct {
        const char* name;
        const char* printed;
    } cases[] = {
        {"ae\x1B[2J\x07", "ae\\x1b[2J\\x07"},
        {"\xC2\x9B"
         "31m",
         "\\xc2\\x9b31m"},
        {"caf\xC3\xA9 \xE2\x82\xAC \xF0\x9F\x93\xB7", "caf\xC3\xA9 \xE2\x82\xAC \xF0\x9F\x93\xB7"},
        {"\xFF\xC3(\xE2\x82", "\\xff\\xc3(\\xe2\\x82"},
        {"\xC0\xAF\xED\xA0\x80\xF4\x90\x80\x80", "\\xc0\\xaf\\xed\\xa0\\x80\\xf4\\x90\\x80\\x80"},
        {"\xEF\xBF\xBF\xE2\x80\xAE\x7F", "\\xef\\xbf\\xbf\\xe2\\x80\\xae\\x7f"},
    };
    for (const auto& [name, printed] : cases) {
        SCOPED_TRACE(printed);
        const std::string text = std::string("I ParamSet: 9, register_tag: ParamSet tag:17, name:") + name +
                                 ", dataType:" + name + ", size:4, tagType:0, retainNum:6\n" +
                                 "W ParamSet: 5, getParamInternal: frameID 11 <= Erased 12, " + name +
                                 " need life >= 8\n"
                                 "V ParamSet: 6, _getParam: success  camID: 0, pipe: 2, frameID: 11, tag: "
                                 "17,intrData:0x1,extrData:0x2,tagSize:4\n"
                                 "E ParamSet: 6, _setParam: fail camID: 0, pipe: 2, frameID: 0, tag: "
                                 "17,intrData:0x1,extrData:(nil),tagSize:4\n";
        const std::string summary = summaryOf(text);
        EXPECT_TRUE(has(summary, std::string("17 ") + printed)) << summary;
        EXPECT_TRUE(has(summary, std::string("tag 17 ") + printed + ": retain 6, needed 8")) << summary;
        pslog::Timeline timeline({});
        pslog::Interpreter interpreter(timeline);
        read(text, interpreter);
        std::ostringstream svg, trace;
        pslog::writeSvg(svg, timeline, interpreter);
        pslog::writeTrace(trace, timeline, interpreter);
        for (const std::string& out : {summary, svg.str(), trace.str()}) {
            std::string line;
            for (std::istringstream lines(out); std::getline(lines, line);) EXPECT_TRUE(pslog::isSafe(line)) << line;
        }
        EXPECT_TRUE(has(trace.str(), nlohmann::json(std::string("pipe 2 ") + printed).dump()));
    }
}
