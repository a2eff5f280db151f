#include "Figures.h"

namespace {

constexpr char kUsage[] =
    "Usage: tvhw_bench\n"
    "Measures what the library costs beside the least that its work could cost, and prints a\n"
    "table of both. Takes about a minute on a quiet machine. Figures of which one misses its\n"
    "target are measured nine times, and the medians are printed; the exit status is 1 if one is\n"
    "missed then.\n";

}  // namespace

int main(int argc, char** argv) {
    return report(argc, argv, kUsage,
                  {[] { return guardedCalls(false); }, [] { return guardedCalls(true); },
                   wrapperHeap, reclaimDelay, reclaimDispatch, callLogCost, acquisitionCost});
}
