#pragma once

#include <gtest/gtest.h>

#include <regex>
#include <string>
#include <vector>

#include "host/HostPlatform.h"

using Lines = std::vector<std::string>;

/// Returns what `action` did, in order. Unique ids of clients read ID and their cookies COOKIE,
/// since both go on counting for the whole process. Log lines must tell where they come from.
template <typename Action>
Lines recorded(Action const& action) {
    kvo::host::startJournal();
    action();
    static std::regex const kUniqueId("\\b7\\d{4}\\b");
    static std::regex const kCookie("ClientInit\\(VDC, 0, \\d+\\)");
    Lines lines;
    for (auto const& entry : kvo::host::stopJournal()) {
        EXPECT_EQ(entry.line > 0, entry.kind == kvo::host::JournalEntry::Kind::kLogLine);
        EXPECT_EQ(entry.file.find("impl/tvhw/"), entry.line > 0 ? 0 : std::string::npos);
        std::string const text = std::regex_replace(entry.text, kUniqueId, "ID");
        lines.push_back(std::regex_replace(text, kCookie, "ClientInit(VDC, 0, COOKIE)"));
    }
    return lines;
}

/// Returns the lines that contain `part`.
inline Lines only(std::string const& part, Lines const& lines) {
    Lines result;
    for (auto const& line : lines) {
        if (line.find(part) != std::string::npos) {
            result.push_back(line);
        }
    }
    return result;
}

/// Returns what the library's `function` logged, as level and message.
inline Lines saidBy(std::string const& function, Lines const& lines) {
    Lines result;
    for (auto const& line : only(" " + function + ": ", lines)) {
        result.push_back(line.substr(0, 2) + line.substr(line.find(": ") + 2));
    }
    return result;
}
