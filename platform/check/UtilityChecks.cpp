#include <elf.h>
#include <fcntl.h>
#include <link.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <dlfcn.h>

#include <cstdint>
#include <cstring>
#include <limits>
#include <string>

#include "Check.h"
#include "SystemUtils.h"

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
    bool isWell = true;
    std::string came;
    for (int const value : {-77, 0, 1, 4, 123456789, std::numeric_limits<int>::max(),
                            std::numeric_limits<int>::min()}) {
        int const read = property(kUnset, value);
        isWell = isWell && read == value;
        came += values({{"for", value}, {"came", read}}) + "; ";
    }
    return outcome(isWell, came);
}

/// A function of the table by its number, which a table of another order has elsewhere.
void* slotOf(SystemUtils& object, std::size_t number) {
    void** table = nullptr;
    std::memcpy(&table, static_cast<void*>(&object), sizeof(table));
    return table[number];
}

/// Calls a slot as an operation that answers a bool, whose byte is 0 or 1; what answers nothing
/// leaves some other byte there, mostly.
int answerOf(SystemUtils& object, std::size_t number, int pid) {
    using Operation = unsigned char (*)(SystemUtils*, int);
    return reinterpret_cast<Operation>(slotOf(object, number))(&object, pid);
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
    struct stat state {};
    if (dladdr(function, &library) == 0) {
        return "";
    }
    int const file = ::open(library.dli_fname, O_RDONLY | O_CLOEXEC);
    if (file < 0 || fstat(file, &state) != 0) {
        return "";
    }
    auto const size = static_cast<std::size_t>(state.st_size);
    void* const memory = mmap(nullptr, size, PROT_READ, MAP_PRIVATE, file, 0);
    ::close(file);
    if (memory == MAP_FAILED) {
        return "";
    }
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
    munmap(memory, size);
    return names;
}

/// Whether the first slots have the names of the operations, as an override has. Where the file has
/// no name that C++ gave, or none at all, a slot may be the right one.
Outcome slotsByName() {
    constexpr char const* kNames[] = {"14getIntPropertyEPKci", "19allowsForcedAcquireEi",
                                      "18onProcessReclaimedEi", "25onReclaimedClientReleasedEi"};
    bool isWell = true;
    std::string came;
    for (std::size_t number = 0; number < 4; ++number) {
        std::string const names = namesOf(slotOf(utils(), number));
        isWell = isWell && (names.find(" _Z") == std::string::npos ||
                            names.find(kNames[number]) != std::string::npos);
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
    int allowed[3] = {};
    int defaults[3] = {};
    for (int step = 0; step < 3; ++step) {
        {
            InCall const in("SystemUtils::allowsForcedAcquire");
            allowed[step] = answerOf(utils(), 1, getpid());
        }
        defaults[step] = property(kUnset, 4711 + step);
        if (step == 0) {
            InCall const in("SystemUtils::onProcessReclaimed");
            utils().onProcessReclaimed(getpid());
        } else if (step == 1) {
            InCall const in("SystemUtils::onReclaimedClientReleased");
            utils().onReclaimedClientReleased(getpid());
        }
    }
    return outcome(allowed[0] == 1 && allowed[1] == 1 && allowed[2] == 1 && defaults[0] == 4711 &&
                       defaults[1] == 4712 && defaults[2] == 4713,
                   values({{"allowed", allowed[0]},
                           {"then", allowed[1]},
                           {"then", allowed[2]},
                           {"default", defaults[0]},
                           {"then", defaults[1]},
                           {"then", defaults[2]}}) +
                       byName.came);
}

/// Asks about processes that there are not, too: their players may have gone.
Outcome anyProcess() {
    std::string came;
    bool isWell = true;
    for (int const pid : {1, getpid(), 4194304, std::numeric_limits<int>::max()}) {
        InCall const in("SystemUtils::allowsForcedAcquire");
        int const answer = answerOf(utils(), 1, pid);
        int const again = answerOf(utils(), 1, pid);
        isWell = isWell && (answer == 0 || answer == 1) && again == answer;
        came += values({{"process", pid}, {"answer", answer}, {"again", again}}) + "; ";
    }
    return outcome(isWell, came);
}

}  // namespace

Checks utilityChecks() {
    return {
        {Level::kMust, "an-unset-property-reads-its-default",
         "SystemUtils::getIntProperty reads tvhw.platform.check.unset with seven defaults",
         "each default", unsetProperty},
        {Level::kMust, "system-utils-slots",
         "the first four slots of SystemUtils' table are looked up in the symbols of its library; "
         "then allowsForcedAcquire for this process, and an unset property, before and after each "
         "of the two notices",
         "where there are names those of getIntProperty, allowsForcedAcquire, onProcessReclaimed "
         "and onReclaimedClientReleased; 1, as this process may force (unless a policy forbids "
         "it), and 4711, 4712, 4713",
         slots},
        {Level::kMust, "any-process-may-be-asked-about",
         "allowsForcedAcquire, twice each, for process 1, this one and two that there are not",
         "0 or 1, the same twice", anyProcess},
    };
}

}  // namespace kvo::check
