#include "host/Settings.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <charconv>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <regex>
#include <stdexcept>

#include "CodecOperations.h"
#include "host/PlatformCall.h"

namespace kvo::host {

namespace {

struct Variable {
    char const* name;
    char const* allowed;
    void (*read)(std::string const& value, Settings& settings);
    bool isOfManager = false;  ///< May stand in a file of the resource manager's.
};

using Parts = std::vector<std::string>;

#define NAME_OF(result, name, ...) #name,
constexpr std::array kCodecOperations{KVO_MEDIA_DECODER_OPERATIONS(NAME_OF, NAME_OF)
                                          KVO_MEDIA_ENCODER_OPERATIONS(NAME_OF, NAME_OF) "release"};
#undef NAME_OF

Parts split(std::string const& text, char separator) {
    Parts parts;
    std::size_t begin = 0;
    for (std::size_t end = 0; end != std::string::npos; begin = end + 1) {
        end = text.find(separator, begin);
        parts.push_back(text.substr(begin, end - begin));
    }
    return parts;
}

/// The readers throw this; what is allowed is in the table of variables unless they say more.
[[noreturn]] void refuse(char const* reason = "") { throw std::invalid_argument(reason); }

int number(std::string const& text, int least, int most) {
    int value = 0;
    char const* const end = text.data() + text.size();
    auto const result = std::from_chars(text.data(), end, value);
    if (result.ec != std::errc() || result.ptr != end || value < least || value > most) {
        refuse();
    }
    return value;
}

/// Returns what the groups of `form` are in `text`, which must have it, from 1 on. What is longer
/// than any setting would take too much of the stack.
Parts match(std::string const& text, std::regex const& form) {
    std::smatch found;
    if (text.size() > 1000 || !std::regex_match(text, found, form)) {
        refuse();
    }
    return {found.begin(), found.end()};
}

int size(std::string const& text) { return number(text, 1, 65535); }

void readPool(std::string const& value, Settings& settings) {
    settings.pool.clear();
    std::regex const form("(decoder|encoder):([1-4]):(\\d+)x(\\d+)");
    for (std::string const& part : split(value, ',')) {
        Parts const core = match(part, form);
        settings.pool.push_back(
            {number(core[2], 1, 4), core[1] == "encoder", size(core[3]), size(core[4])});
    }
}

void readPanel(std::string const& value, Settings& settings) {
    if (value == "unreadable") {
        settings.panel.readable = false;
        return;
    }
    Parts const panel = match(value, std::regex("(\\d+)x(\\d+)"));
    settings.panel = {size(panel[1]), size(panel[2]), true};
}

void readProperties(std::string const& value, Settings& settings) {
    std::regex const form("([^=]+)=(.*)");
    for (std::string const& part : split(value, ',')) {
        Parts const property = match(part, form);
        settings.properties[property[1]] = number(property[2], INT32_MIN, INT32_MAX);
    }
}

void readFaults(std::string const& value, Settings& settings) {
    std::regex const form("([^=]+)=([^@]*)(@(.*))?");
    for (std::string const& part : split(value, ',')) {
        Parts const fault = match(part, form);
        if (fault[1] != "*" && !isOperation(fault[1])) {
            refuse();
        }
        int const call = fault[3].empty() ? 1 : number(fault[4], 1, INT32_MAX);
        settings.faults.push_back(
            {fault[1], number(fault[2], INT32_MIN, INT32_MAX), static_cast<std::uint64_t>(call)});
    }
}

void readPolicy(std::string const& value, Settings& settings) {
    settings.priorities.clear();
    std::regex const form("([^=]+)=(.*)");
    for (std::string const& part : split(value, ',')) {
        Parts const priority = match(part, form);
        settings.priorities[priority[1]] = number(priority[2], -100, 100);
    }
}

void readReclaim(std::string const& value, Settings& settings) {
    using When = Settings::Reclaim::When;
    Parts const call = match(value, std::regex("(before|inside|after):([^:@]+)@(.*)"));
    bool const isOfCodec = std::find(kCodecOperations.begin(), kCodecOperations.end(), call[2]) !=
                           kCodecOperations.end();
    if (call[2] != "*" && !isOfCodec && !isOperation(call[2])) {
        refuse();
    }
    settings.reclaim = {call[1] == "before"   ? When::kBefore
                        : call[1] == "inside" ? When::kInside
                                              : When::kAfter,
                        call[2], static_cast<std::uint64_t>(number(call[3], 1, INT32_MAX))};
}

void readMisuse(std::string const& value, Settings& settings) {
    if (value != "abort") {
        refuse();
    }
    settings.abortsOnMisuse = true;
}

void readLeastHold(std::string const& value, Settings& settings) {
    settings.leastHold = number(value, 0, 9999);
}

/// Reads levels as LEVEL or TAG:LEVEL; "*" stands for all other tags.
void readLogLevels(std::string const& value, Settings& settings) {
    std::regex const form("((.+):)?(.*)");
    for (std::string const& part : split(value, ',')) {
        Parts const level = match(part, form);
        (level[1].empty() || level[2] == "*" ? settings.logLevels.ofOtherTags
                                             : settings.logLevels.ofTag[level[2]]) =
            number(level[3], -1, kCallLevel);
    }
}

void openLogFile(std::string const& value, Settings& settings) {
    settings.logOutput = ::open(value.c_str(), O_WRONLY | O_APPEND | O_CREAT | O_CLOEXEC, 0644);
    if (settings.logOutput < 0) {
        refuse(std::strerror(errno));
    }
}

constexpr std::array<Variable, 10> kVariables{
    {{"KVO_HOST_POOL",
      "cores as USE:TYPE:WIDTHxHEIGHT with a USE of decoder or encoder, a TYPE of 1 to 4 and sizes "
      "of 1 to 65535, as in decoder:1:3840x2160,encoder:1:1920x1088",
      readPool, true},
     {"KVO_HOST_PANEL", "WIDTHxHEIGHT of 1 to 65535 each, or unreadable", readPanel},
     {"KVO_HOST_PROPERTIES", "system properties as NAME=INTEGER, separated by commas",
      readProperties},
     {"KVO_HOST_FAULTS",
      "faults as OPERATION=CODE or OPERATION=CODE@CALL, separated by commas, with an operation of "
      "the platform or *, and a CALL from 1, as in TVHW_CRM_ClientInit=-5@2",
      readFaults},
     {"KVO_HOST_POLICY",
      "priorities of -100 to 100 as PROCESS=PRIORITY, separated by commas, a PROCESS being a "
      "process id, the name of a program, or * for all others",
      readPolicy, true},
     {"KVO_HOST_RECLAIM",
      "WHEN:OPERATION@CALL with a WHEN of before, inside or after, an operation of the platform or "
      "of a codec or *, and a CALL from 1, as in inside:writeInputFrame@3",
      readReclaim},
     {"KVO_HOST_MISUSE", "abort", readMisuse},
     {"KVO_HOST_LEAST_HOLD", "milliseconds from 0 to 9999", readLeastHold, true},
     {"KVO_MEDIA_LOG_LEVEL", "a level from -1 to 4, or a list such as VideoClient:3,*:1",
      readLogLevels},
     {"KVO_MEDIA_LOG_FILE", "", openLogFile}}};

[[noreturn]] void end(std::string const& key, std::string const& value,
                      std::string const& allowed) {
    static_cast<void>(
        std::fprintf(stderr, "%s=%s: %s\n", key.c_str(), value.c_str(), allowed.c_str()));
    std::_Exit(2);
}

/// A name that is not known is most likely a misspelled one.
void refuseUnknownNames() {
    std::string known;
    for (Variable const& variable : kVariables) {
        known += std::string(known.empty() ? "" : ", ") + variable.name;
    }
    for (char** entry = environ; *entry != nullptr; ++entry) {
        std::string const setting = *entry;
        std::string const name = setting.substr(0, setting.find('='));
        bool const isOurs = name.rfind("KVO_HOST_", 0) == 0 || name.rfind("KVO_MEDIA_LOG_", 0) == 0;
        if (isOurs && (", " + known + ", ").find(", " + name + ", ") == std::string::npos) {
            end(name, setting.substr(std::min(name.size() + 1, setting.size())),
                "no such setting; allowed are " + known);
        }
    }
}

/// Throws std::invalid_argument with what is allowed.
void set(Variable const& variable, std::string const& value, Settings& settings) {
    try {
        variable.read(value, settings);
    } catch (std::invalid_argument const& failure) {
        std::string const reason = failure.what();
        refuse(reason.empty() ? (std::string("allowed are ") + variable.allowed).c_str()
                              : reason.c_str());
    }
}

Settings read() {
    refuseUnknownNames();
    Settings result{};
    result.logOutput = STDERR_FILENO;
    result.pool = {// Decoder cores of one size, so that the first one open gets the first core.
                   {1, false, 3840, 2160},
                   {2, false, 3840, 2160},
                   {3, false, 3840, 2160},
                   {1, true, 1920, 1088},
                   {2, true, 1920, 1088}};
    for (Variable const& variable : kVariables) {
        char const* const value = std::getenv(variable.name);
        if (value == nullptr || *value == '\0') {
            continue;
        }
        try {
            set(variable, value, result);
        } catch (std::invalid_argument const& failure) {
            end(variable.name, value, failure.what());
        }
    }
    return result;
}

[[maybe_unused]] Settings const& gReadAtOnce = settings();

}  // namespace

int Settings::priorityOf(int pid) const {
    if (priorities.empty()) {
        return 0;
    }
    for (std::string const& process : {std::to_string(pid), programOf(pid), std::string("*")}) {
        auto const found = priorities.find(process);
        if (found != priorities.end()) {
            return found->second;
        }
    }
    return 0;
}

Settings const& settings() {
    static Settings const& theSettings = *new Settings(read());
    return theSettings;
}

Settings settingsWith(std::string const& file) {
    std::error_code missing;
    bool const isFile = std::filesystem::is_regular_file(file, missing);  // Others may block.
    std::ifstream lines(isFile ? file : "");
    if (!lines) {
        throw std::invalid_argument(file + ": " +
                                    (isFile    ? std::strerror(errno)
                                     : missing ? missing.message()
                                               : "no regular file"));
    }
    Settings result = settings();
    int number = 0;
    for (std::string line; std::getline(lines, line);) {
        ++number;
        if (line.empty() || line[0] == '#') {
            continue;
        }
        auto const equals = std::min(line.find('='), line.size());
        std::string const name = line.substr(0, equals);
        std::string place = file;
        place.append(":").append(std::to_string(number)).append(": ").append(line).append(": ");
        auto const variable =
            std::find_if(kVariables.begin(), kVariables.end(),
                         [&](Variable const& known) { return known.name == name; });
        if (variable == kVariables.end() || equals == line.size() || !variable->isOfManager) {
            throw std::invalid_argument(place +
                                        "allowed are KVO_HOST_POOL=..., KVO_HOST_POLICY=... and "
                                        "KVO_HOST_LEAST_HOLD=...");
        }
        try {
            set(*variable, line.substr(equals + 1), result);
        } catch (std::invalid_argument const& failure) {
            throw std::invalid_argument(place + failure.what());
        }
    }
    return lines.bad() ? throw std::invalid_argument(file + " cannot be read") : result;
}

std::string programOf(int pid) {
    std::error_code failure;
    auto const program =
        std::filesystem::read_symlink("/proc/" + std::to_string(pid) + "/exe", failure);
    return failure ? "?" : program.filename().string();
}

}  // namespace kvo::host
