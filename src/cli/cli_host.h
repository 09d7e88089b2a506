// What the library tells and asks while it works on one file, as the command line answers it.
#pragma once

#include "base/host.h"
#include "cli/console.h"
#include "cli/options.h"

#include <mutex>
#include <string>
#include <vector>

namespace vimbo::cli {

/// How a host without a person answers.
struct HostAnswers {
    ReadAnswers read;
    bool openExternally = false; ///< may start the desktop's program for a file
    bool wantsNotes = false;     ///< for a conversion report
};

struct HostMessage {
    Severity severity = Severity::Note;
    std::string text;
};

/// The host of one file's collection. Messages are kept until the caller prints them, so that those of files
/// that are worked on side by side never mix. Thread: may be shared by several workers.
class CliHost final : public Host {
public:
    /// @param index number of the file for the console's progress bar
    CliHost(Console& console, std::size_t index, HostAnswers answers) noexcept
        : console_(console), index_(index), answers_(answers)
    {
    }

    void ShowMessage(std::u16string_view text, std::u16string_view title, MessageIcon icon) override;
    std::size_t Ask(const Question& question) override;
    bool PickFile(std::u16string_view text, std::u16string_view filter, std::u16string& path) override;
    void SetProgress(std::u16string_view what, double fraction) override;
    bool IsCancelled() const override;
    [[nodiscard]] bool OpenExternally(std::u16string_view path) override;
    void NoteConversion(ConversionNote note) override;
    bool WantsNotes() const override { return answers_.wantsNotes; }

    std::vector<HostMessage> TakeMessages();
    std::vector<ConversionNote> TakeNotes();

private:
    void Keep(Severity severity, std::string text);

    Console& console_;
    const std::size_t index_;
    const HostAnswers answers_;
    std::mutex mutex_;
    std::vector<HostMessage> messages_;
    std::vector<ConversionNote> notes_;
};

/// True if a person sits at both ends: standard input and standard error are terminals.
bool IsInteractive() noexcept;

} // namespace vimbo::cli
