// The platform utility, and the log in the same library.

#include <dlfcn.h>
#include <elf.h>
#include <link.h>
#include <sys/mman.h>
#include <unistd.h>

#include <chrono>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <limits>
#include <sstream>
#include <string>
#include <utility>

#include "Check.h"
#include "SystemUtils.h"
#include "kvo_media_log.h"

namespace kvo::check {

namespace {

using kvo::media::platform::SystemUtils;

constexpr char kUnset[] = "tvhw.platform.check.unset";

SystemUtils& utils() {
    InCall const in("SystemUtils::getInstance");
    return SystemUtils::getInstance();
}

int property(char const* name, int defaultValue) {
    InCall const in("SystemUtils::getIntProperty");
    return utils().getIntProperty(name, defaultValue);
}

Outcome unsetProperty() {
    Values values;
    for (int const value : {-77, 0, 1, 4, 123456789, std::numeric_limits<int>::max(),
                            std::numeric_limits<int>::min()}) {
        values.emplace_back("came", property(kUnset, value), value);
    }
    return areRight(values);
}

/// A function of the table by its number, which a table of another order has elsewhere.
void* slotOf(SystemUtils& object, std::size_t number) {
    void** table = nullptr;
    std::memcpy(&table, static_cast<void*>(&object), sizeof(table));
    return table[number];
}

/// The number of an operation's slot by the declaration, which may have others in between. A
/// pointer to a virtual operation begins with the offset in the table; on some processors 1 is
/// added.
template <typename Operation>
std::size_t declaredSlot(Operation operation) {
    std::uintptr_t offset = 0;
    std::memcpy(&offset, &operation, sizeof(offset));
    return offset / sizeof(void*);
}

/// Calls allowsForcedAcquire as an operation that answers a byte, which is 0 or 1; what answers
/// nothing leaves some other byte there, mostly.
int allows(int pid) {
    using Operation = unsigned char (*)(SystemUtils*, int);
    InCall const in("SystemUtils::allowsForcedAcquire");
    void* const function = slotOf(utils(), declaredSlot(&SystemUtils::allowsForcedAcquire));
    return reinterpret_cast<Operation>(function)(&utils(), pid);
}

template <typename T>
T const* at(void const* file, std::size_t offset) {
    void const* const place = static_cast<char const*>(file) + offset;
    return static_cast<T const*>(place);
}

/// The names that a library's file has for a function: all of them, as one may stand for several.
std::string namesOf(void const* function) {
    constexpr std::uintptr_t kThumb = 1;  // Of an address, on Arm; functions begin at even ones.
    Dl_info library{};
    if (dladdr(function, &library) == 0) {
        return "";
    }
    std::ostringstream read;
    read << std::ifstream(library.dli_fname, std::ios::binary).rdbuf();
    std::string const content = read.str();
    if (content.size() < sizeof(ElfW(Ehdr))) {
        return "";
    }
    void const* const memory = content.data();
    auto const* const header = at<ElfW(Ehdr)>(memory, 0);
    auto const* const sections = at<ElfW(Shdr)>(memory, header->e_shoff);
    auto const wanted = (reinterpret_cast<std::uintptr_t>(function) -
                         reinterpret_cast<std::uintptr_t>(library.dli_fbase)) &
                        ~kThumb;
    std::string names;
    for (int index = 0; header->e_shoff != 0 && index < header->e_shnum; ++index) {
        auto const& section = sections[index];
        if (section.sh_type != SHT_SYMTAB && section.sh_type != SHT_DYNSYM) {
            continue;
        }
        auto const* const symbols = at<ElfW(Sym)>(memory, section.sh_offset);
        auto const* const texts = at<char>(memory, sections[section.sh_link].sh_offset);
        for (std::size_t each = 0; each < section.sh_size / sizeof(ElfW(Sym)); ++each) {
            if ((symbols[each].st_info & 15) == STT_FUNC && symbols[each].st_shndx != SHN_UNDEF &&
                (symbols[each].st_value & ~kThumb) == wanted) {
                names += std::string(" ") + (texts + symbols[each].st_name);
            }
        }
    }
    return names;
}

/// Whether the slots have the names of the operations, as an override has. Where the file has
/// no name that C++ gave, or none at all, a slot may be the right one.
Outcome slotsByName() {
    std::pair<std::size_t, char const*> const slots[] = {
        {declaredSlot(&SystemUtils::getIntProperty), "14getIntPropertyEPKci"},
        {declaredSlot(&SystemUtils::allowsForcedAcquire), "19allowsForcedAcquireEi"},
        {declaredSlot(&SystemUtils::onProcessReclaimed), "18onProcessReclaimedEi"},
        {declaredSlot(&SystemUtils::onReclaimedClientReleased), "25onReclaimedClientReleasedEi"}};
    bool isWell = true;
    std::string came;
    for (auto const& [number, name] : slots) {
        std::string const names = namesOf(slotOf(utils(), number));
        isWell = isWell &&
                 (names.find(" _Z") == std::string::npos || names.find(name) != std::string::npos);
        came += "; slot " + std::to_string(number) + (names.empty() ? " without a name" : names);
    }
    return outcome(isWell, came);
}

/// A table of another order calls a notification here, which answers no bool, or a property's
/// reader, which takes the number for a name.
Outcome slots() {
    Outcome const byName = slotsByName();
    if (byName.kind == Outcome::Kind::kFailed) {
        return outcome(false, byName.came.substr(2));  // Without calling who knows what.
    }
    int allowed = 1;
    Values const values = onAnotherThread([&] {  // As most are called.
        Values all;
        for (int step = 0; step < 3; ++step) {
            int const answer = allows(getpid());
            allowed = step == 0 && answer == 0 ? 0 : allowed;  // By a policy.
            all.emplace_back("allowed", answer, allowed);
            all.emplace_back("default", property(kUnset, 4711 + step), 4711 + step);
            if (step == 0) {
                InCall const in("SystemUtils::onProcessReclaimed");
                utils().onProcessReclaimed(getpid());
            } else if (step == 1) {
                InCall const in("SystemUtils::onReclaimedClientReleased");
                utils().onReclaimedClientReleased(getpid());
            }
        }
        return all;
    });
    Outcome const result = areRight(values, byName.came);
    bool const isNamed = byName.came.find("without a name") == std::string::npos;
    return allowed == 1 || isNamed || result.kind == Outcome::Kind::kFailed
               ? result
               : skipped("a policy forbids it, or the slots are others: " + result.came);
}

/// Asks about processes that there are not, too: their players may have gone.
Outcome anyProcess() {
    Values values;
    for (int const pid : {1, getpid(), 4194304, std::numeric_limits<int>::max()}) {
        int const answer = allows(pid);
        values.emplace_back("process", pid, Value::kAny);
        values.emplace_back("answer", answer, answer == 0 ? 0 : 1);
        values.emplace_back("again", onAnotherThread([pid] { return allows(pid); }), answer);
    }
    return areRight(values);
}

// --- The log.

constexpr char kTag[] = "PlatformCheckTag";
constexpr char kFile[] = "check/PlatformCheckFile.cpp";
constexpr char kFunction[] = "platformCheckFunction";

void logLine(int level) {
    InCall const in("kvo_media_log_printf");
    kvo_media_log_printf(level, kTag, kFile, kFunction, 4712, "core=0x%x of %s, %d/%u (%d%%)",
                         0xBEEF, std::string(100, '-').c_str(), -5, 3000000000U, 42);
}

/// About as long as the longest of the library.
std::string message() {
    return "core=0xbeef of " + std::string(100, '-') + ", -5/3000000000 (42%)";
}

/// Lets what the process prints from now on go to a file, which it returns.
int redirect() {
    int const file = memfd_create("printed", 0);
    dup2(file, STDOUT_FILENO);
    dup2(file, STDERR_FILENO);
    return file;
}

std::string contentOf(int file) {
    static_cast<void>(std::fflush(nullptr));
    std::string content(static_cast<std::size_t>(lseek(file, 0, SEEK_END)), '\0');
    ssize_t const count = pread(file, content.data(), content.size(), 0);
    content.resize(count < 0 ? 0 : static_cast<std::size_t>(count));
    return content;
}

Outcome printsArguments() {
    int const printed = redirect();
    for (int level = 0; level <= 3; ++level) {
        logLine(level);
    }
    std::string const content = contentOf(printed);
    auto const found = content.find(message());
    if (found == std::string::npos) {
        bool const isSomething = content.find(kTag) != std::string::npos ||
                                 content.find(kFile) != std::string::npos ||
                                 content.find(kFunction) != std::string::npos;
        return isSomething ? outcome(false, content)
                           : skipped("the log prints nothing of it to standard output or error");
    }
    auto const begin = content.rfind('\n', found) + 1;
    std::string const line = content.substr(begin, content.find('\n', begin) - begin);
    auto const tag = line.find(kTag);
    auto const isBehindTag = [&](char const* what) {
        auto const place = line.find(what);
        return place == std::string::npos || tag == std::string::npos || place > tag;
    };
    return outcome(isBehindTag(kFile) && isBehindTag(kFunction), line);
}

Outcome doesNotBlock() {
    auto const start = std::chrono::steady_clock::now();
    int const printed = redirect();
    inFourThreads([](int) {
        for (int line = 0; line < 25; ++line) {
            logLine(line % 4);
        }
    });
    std::size_t const size = contentOf(printed).size();
    auto const took = std::chrono::duration_cast<std::chrono::milliseconds>(
        std::chrono::steady_clock::now() - start);
    return areRight({{"ms", took.count(), Value::kAny},
                     {"bytes printed", size, Value::kAny},
                     {"5 s or more", took >= std::chrono::seconds(5)}});
}

}  // namespace

Checks utilityChecks() {
    return {
        {kMust, "an-unset-property-reads-its-default",
         "SystemUtils::getIntProperty reads tvhw.platform.check.unset with seven defaults",
         "each default", unsetProperty},
        {kMust, "system-utils-slots",
         "the slots' names in the library; allowsForcedAcquire and a property between both notices",
         "the four of SystemUtils.h; 1 or 0 each time, and 4711, 4712, 4713", slots},
        {kMust, "any-process-may-be-asked-about",
         "allowsForcedAcquire, on two threads, for process 1, this one and two that there are not",
         "0 or 1, the same twice", anyProcess},
    };
}

Checks logChecks() {
    return {
        {kMust, "the-log-prints-its-arguments",
         "kvo_media_log_printf with level 0 to 3, a tag, file, function, line 4712 and five values",
         "a line with the message whole, and the tag, if it is there, before file and function",
         printsArguments},
        {kMust, "the-log-does-not-block",
         "kvo_media_log_printf, 100 lines from four threads at once", "all taken within 5 s",
         doesNotBlock},
    };
}

}  // namespace kvo::check
