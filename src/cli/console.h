// Standard error: one line per message, and the progress bar below them.
#pragma once

#include <chrono>
#include <cstddef>
#include <mutex>
#include <string>
#include <string_view>
#include <vector>

namespace vimbo::cli {

enum class Severity {
    Error,  ///< always shown
    Note,   ///< not with -q
    Detail, ///< only with -v
};

/// Thread: all functions may be called from any thread.
class Console {
public:
    Console(bool quiet, bool verbose);
    ~Console();
    Console(const Console&) = delete;
    Console& operator=(const Console&) = delete;

    /// Prints "vimbo: FILE: message" if the severity is to be shown. `file` is a path of the system; ""
    /// leaves it out.
    void Say(Severity severity, std::string_view file, std::string_view message);

    /// Shows a bar for `total` files until EndProgress; only on a terminal and without -q.
    void StartProgress(std::size_t total);
    /// How far file `index` is (0 to 1).
    void SetProgress(std::size_t index, double fraction);
    void EndProgress();

    bool IsQuiet() const noexcept { return quiet_; }

private:
    void Draw();
    void Erase();

    const bool quiet_;
    const bool verbose_;
    const bool drawsBar_;
    std::mutex mutex_;
    std::vector<double> fractions_; ///< per file, empty without a bar
    double sum_ = 0;
    bool drawn_ = false;
    std::chrono::steady_clock::time_point lastDrawn_{};
};

} // namespace vimbo::cli
