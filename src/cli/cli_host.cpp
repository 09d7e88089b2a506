#include "cli/cli_host.h"

#include "base/text.h"
#include "cli/display.h"
#include "cli/interrupt.h"

#include <fmt/format.h>

#include <utility>

#include <spawn.h>
#include <unistd.h>

namespace vimbo::cli {

namespace {

constexpr std::size_t kRawImportOk = 0; ///< button "OK" of the question "raw-import"

std::size_t AnswerTo(const Question& question, const HostAnswers& answers) noexcept
{
    return question.key == "raw-import" && answers.raw ? kRawImportOk : question.defaultButton;
}

} // namespace

void CliHost::ShowMessage(std::u16string_view text, std::u16string_view, MessageIcon icon)
{
    Keep(icon == MessageIcon::Error ? Severity::Error : Severity::Note, Printable(text));
}

std::size_t CliHost::Ask(const Question& question)
{
    const std::size_t answer = AnswerTo(question, answers_);
    const bool known = answer < question.buttons.size();
    // What the user decided by an option is no news.
    const bool decided = question.key == "raw-import" && answers_.raw;
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
