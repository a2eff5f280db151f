#include "Report.h"

#include <unistd.h>

#include <algorithm>
#include <array>
#include <cstdio>
#include <iostream>
#include <utility>

#include "Libav.h"

namespace kvo::demo {

namespace {

constexpr std::chrono::milliseconds kRedrawEvery{100};
constexpr std::chrono::seconds kPrintEvery{5};

constexpr char kBeginOfLine[] = "\r\033[K";

using Cells = std::array<std::string, 7>;

Cells cellsOf(SummaryRow const& row) {
    return {row.act, row.pictures, row.size, row.core, row.port, row.statuses, row.time};
}

}  // namespace

Progress::Progress() : mIsTerminal(isatty(STDOUT_FILENO) == 1) {}

Progress::~Progress() {
    if (mLineIsOpen) {
        std::cout << std::endl;
    }
}

void Progress::begin(std::string step) {
    mStep = std::move(step);
    mBegan = mPrinted = Clock::now();
    if (mIsTerminal) {
        std::cout << kBeginOfLine << mStep << " ..." << std::flush;
        mLineIsOpen = true;
    }
}

void Progress::update(unsigned int pictures, unsigned int total) {
    Clock::time_point const now = Clock::now();
    if (now - mPrinted < (mIsTerminal ? Clock::duration(kRedrawEvery) : kPrintEvery)) {
        return;
    }
    mPrinted = now;
    std::string text = mStep + ": " + std::to_string(pictures);
    text += total == 0 ? "" : " of " + std::to_string(total);
    text += " pictures";
    if (mIsTerminal) {
        std::cout << kBeginOfLine << text << std::flush;
    } else {
        std::cout << text << std::endl;
    }
}

void Progress::end(std::string const& outcome) {
    std::cout << (mLineIsOpen ? kBeginOfLine : "") << mStep << ": " << outcome << std::endl;
    mLineIsOpen = false;
}

double Progress::seconds() const {
    return std::chrono::duration<double>(Clock::now() - mBegan).count();
}

void Answers::require(std::string const& call, media::hardware::Status answer, int expected) {
    std::string const code = std::to_string(answer.code());
    demo::require(answer.code() == expected,
                  call + " answered " + code + ", not " + std::to_string(expected));
    mText += (mText.empty() ? "" : ", ") + call + " " + code;
}

void printSummary(std::vector<SummaryRow> const& rows, std::vector<WrittenFile> const& files) {
    std::vector<Cells> table{
        cellsOf({"Act", "Pictures", "Size", "Core", "Port", "Statuses", "Time"})};
    std::transform(rows.begin(), rows.end(), std::back_inserter(table), cellsOf);
    Cells::size_type const columns = table.front().size();
    std::vector<std::size_t> widths(columns, 0);
    for (Cells const& cells : table) {
        for (Cells::size_type column = 0; column < columns; ++column) {
            widths[column] = std::max(widths[column], cells[column].size());
        }
    }
    std::cout << '\n';
    for (Cells const& cells : table) {
        std::string line;
        for (Cells::size_type column = 0; column < columns; ++column) {
            std::string cell = cells[column];
            cell.resize(widths[column], ' ');
            line += cell + "  ";
        }
        line.erase(line.find_last_not_of(' ') + 1);
        std::cout << line << '\n';
    }
    std::cout << '\n';
    for (WrittenFile const& file : files) {
        std::cout << file.path << ": " << file.content << '\n';
    }
    std::cout << std::flush;
}

}  // namespace kvo::demo
