#include "cli/console.h"

#include "cli/display.h"

#include <fmt/format.h>

#include <algorithm>
#include <cmath>
#include <cstdio>

#include <unistd.h>

namespace vimbo::cli {

namespace {

constexpr std::size_t kBarColumns = 40;
constexpr auto kRedrawInterval = std::chrono::milliseconds(100);

} // namespace

Console::Console(bool quiet, bool verbose)
    : quiet_(quiet), verbose_(verbose), drawsBar_(!quiet && ::isatty(STDERR_FILENO) != 0)
{
}

Console::~Console()
{
    EndProgress();
}

void Console::Say(Severity severity, std::string_view file, std::string_view message)
{
    if ((severity == Severity::Note && quiet_) || (severity == Severity::Detail && (!verbose_ || quiet_)))
        return;
    std::string line = "vimbo: ";
    if (!file.empty())
        line += Printable(file) + ": ";
    line += Printable(message) + "\n";
    const std::lock_guard lock(mutex_);
    Erase();
    std::fwrite(line.data(), 1, line.size(), stderr);
}

void Console::StartProgress(std::size_t total)
{
    if (!drawsBar_ || total == 0)
        return;
    const std::lock_guard lock(mutex_);
    fractions_.assign(total, 0);
    sum_ = 0;
    lastDrawn_ = std::chrono::steady_clock::now(); // work that ends at once shows no bar
}

void Console::SetProgress(std::size_t index, double fraction)
{
    const std::lock_guard lock(mutex_);
    if (index >= fractions_.size())
        return;
    fraction = std::clamp(fraction, 0.0, 1.0);
    sum_ += fraction - fractions_[index];
    fractions_[index] = fraction;
    const auto now = std::chrono::steady_clock::now();
    if (now - lastDrawn_ < kRedrawInterval)
        return;
    lastDrawn_ = now;
    Draw();
}

void Console::EndProgress()
{
    const std::lock_guard lock(mutex_);
    Erase();
    fractions_.clear();
}

void Console::Draw()
{
    const double share = std::clamp(sum_ / static_cast<double>(fractions_.size()), 0.0, 1.0);
    const auto filled = static_cast<std::size_t>(share * static_cast<double>(kBarColumns));
    const auto done = std::count(fractions_.begin(), fractions_.end(), 1.0);
    const std::string line =
        fmt::format("\r[{}{}] {:3.0f}%  {}/{}", std::string(filled, '#'),
                    std::string(kBarColumns - filled, '.'), std::floor(share * 100), done, fractions_.size());
    std::fwrite(line.data(), 1, line.size(), stderr);
    std::fflush(stderr);
    drawn_ = true;
}

void Console::Erase()
{
    if (!drawn_)
        return;
    std::fputs("\r\x1B[K", stderr); // back to the first column, erase the line
    std::fflush(stderr);
    drawn_ = false;
}

} // namespace vimbo::cli
