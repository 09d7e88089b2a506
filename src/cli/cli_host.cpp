#include "cli/cli_host.h"

#include "base/text.h"
#include "cli/display.h"
#include "cli/interrupt.h"

#include <fmt/format.h>

#include <optional>
#include <string>
#include <utility>

#include <spawn.h>
#include <unistd.h>

namespace vimbo::cli {

namespace {

constexpr std::size_t kRawImportOk = 0; ///< button "OK" of the question "raw-import"

/// The button that begins with the number, as in "4-bit".
std::optional<std::size_t> ButtonOfNumber(const Question& question, unsigned number)
{
    const std::u16string digits = NarrowToWide(std::to_string(number) + "-");
    for (std::size_t i = 0; i < question.buttons.size(); ++i) {
        if (question.buttons[i].starts_with(digits))
            return i;
    }
    return std::nullopt;
}

/// The answer that an option gives, if one does.
std::optional<std::size_t> DecidedAnswer(const Question& question, const ReadAnswers& answers)
{
    if (question.key == "raw-import" && answers.raw)
        return kRawImportOk;
    if (question.key == "bit-packing" && !answers.bitPacking.empty())
        return answers.bitPacking == "little" ? 1 : 0;
    if (question.key == "code-bits" && answers.codeBits != 0)
        return ButtonOfNumber(question, answers.codeBits);
    if (question.key == "ask-again") // there is no next time
        return question.defaultButton;
    return std::nullopt;
}

} // namespace

void CliHost::ShowMessage(std::u16string_view text, std::u16string_view, MessageIcon icon)
{
    Keep(icon == MessageIcon::Error ? Severity::Error : Severity::Note, Printable(text));
}

std::size_t CliHost::Ask(const Question& question)
{
    const std::optional<std::size_t> decided = DecidedAnswer(question, answers_.read);
    const std::size_t answer = decided.value_or(question.defaultButton);
    const bool known = answer < question.buttons.size();
    // What the user decided by an option is no news.
    Keep(decided ? Severity::Detail : Severity::Note,
         fmt::format("{} (answered \"{}\")", Printable(question.text),
                     known ? Printable(question.buttons[answer]) : std::string("OK")));
    return answer;
}

bool CliHost::PickFile(std::u16string_view text, std::u16string_view, std::u16string&)
{
    Keep(Severity::Note, Printable(text) + " (left out)");
    return false;
}

void CliHost::SetProgress(std::u16string_view, double fraction)
{
    if (fraction >= 0)
        console_.SetProgress(index_, fraction * 0.99); // the file is done when it is saved, not before
}

bool CliHost::IsCancelled() const
{
    return IsInterrupted();
}

bool CliHost::OpenExternally(std::u16string_view path)
{
    if (!answers_.openExternally || !IsInteractive())
        return false;
    std::string target = WideToPath(path);
    if (target.starts_with('-'))
        target.insert(0, "./");
    std::string program = "xdg-open";
    char* const arguments[] = {program.data(), target.data(), nullptr};
    pid_t child = 0;
    return ::posix_spawnp(&child, program.c_str(), nullptr, nullptr, arguments, environ) == 0;
}

void CliHost::NoteConversion(ConversionNote note)
{
    const std::lock_guard lock(mutex_);
    notes_.push_back(std::move(note));
}

std::vector<ConversionNote> CliHost::TakeNotes()
{
    const std::lock_guard lock(mutex_);
    return std::exchange(notes_, {});
}

std::vector<HostMessage> CliHost::TakeMessages()
{
    const std::lock_guard lock(mutex_);
    return std::exchange(messages_, {});
}

void CliHost::Keep(Severity severity, std::string text)
{
    const std::lock_guard lock(mutex_);
    messages_.push_back({severity, std::move(text)});
}

bool IsInteractive() noexcept
{
    return ::isatty(STDIN_FILENO) != 0 && ::isatty(STDERR_FILENO) != 0;
}

} // namespace vimbo::cli
