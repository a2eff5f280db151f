#include <algorithm>
#include <cstdio>
#include <cstring>
#include <thread>

#include "Figures.h"
#include "host/HostPlatform.h"

namespace {

constexpr char kUsage[] =
    "Usage: tvhw_bench\n"
    "Measures what the library costs beside the least that its work could cost, in one or two\n"
    "minutes, and prints a table of both. A time that misses its target is shown as missed; heap\n"
    "that does is an error as well (exit status 1). To be run on a quiet machine.\n";

void append(Rows& rows, Rows const& more) { rows.insert(rows.end(), more.begin(), more.end()); }

}  // namespace

int main(int argc, char** argv) {
    if (argc > 1) {
        if (argc == 2 && std::strcmp(argv[1], "--help") == 0) {
            std::fputs(kUsage, stdout);
            return 0;
        }
        std::fprintf(stderr, "tvhw_bench: unexpected argument %s; see --help\n", argv[1]);
        return 2;
    }
    char program[] = "tvhw_bench";
    char interleaving[] = "--benchmark_enable_random_interleaving=true";
    char* options[] = {program, interleaving, nullptr};
    int optionCount = 2;
    benchmark::Initialize(&optionCount, options);
    kvo::host::setLogLevel(-1);

    // Locks and counts are cheaper in a process that never had a second thread; codecs' have many.
    std::thread([] {}).join();

    printMachine();
    Rows rows = guardedCalls(false);
    append(rows, guardedCalls(true));
    Rows const heap = wrapperHeap();
    append(rows, heap);
    append(rows, reclaimDelay());
    append(rows, reclaimDispatch());
    print(rows);
    return std::all_of(heap.begin(), heap.end(), isReached) ? 0 : 1;
}
