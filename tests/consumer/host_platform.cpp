// Uses the installed host platform by itself, each of its libraries at least once.

#include <host/HostPlatform.h>
#include <tvhw_crm.h>

#include <cstdio>

int main() {
    kvo::host::startJournal();
    kvo::host::failCall("TVHW_CRM_ClientInit", -7);
    TVHW_CRM_HANDLE client = nullptr;
    int const result = TVHW_CRM_ClientInit(&client, "consumer", nullptr, 0, nullptr);
    auto const journal = kvo::host::stopJournal();
    std::printf("answer %d, %zu call recorded\n", result, journal.size());

    bool const isFirstState = kvo::host::panel().width == 1920 &&
                              !kvo::host::scalerChannel(0).opened &&
                              kvo::host::videoOutput().opens == 0;
    if (result != -7 || journal.size() != 1 || !isFirstState) {
        std::fputs("host_platform_consumer: the host platform does not do as told\n", stderr);
        return 1;
    }
    return 0;
}
