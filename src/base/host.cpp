#include "base/host.h"

namespace vimbo {

void Host::ShowMessage(std::u16string_view, std::u16string_view, MessageIcon) {}

std::size_t Host::Ask(const Question& question)
{
    return question.defaultButton;
}

bool Host::PickFile(std::u16string_view, std::u16string_view, std::u16string&)
{
    return false;
}

void Host::SetStatus(std::u16string_view) {}

void Host::SetProgress(std::u16string_view, double) {}

bool Host::IsCancelled() const
{
    return false;
}

bool Host::OpenExternally(std::u16string_view)
{
    return false;
}

void Host::NoteConversion(ConversionNote) {}

bool Host::WantsNotes() const
{
    return false;
}

std::optional<std::size_t> Host::RememberedAnswer(std::string_view key) const
{
    const std::lock_guard lock(mutex_);
    const auto found = answers_.find(key);
    return found == answers_.end() ? std::nullopt : std::optional(found->second);
}

void Host::RememberAnswer(std::string_view key, std::size_t answer)
{
    const std::lock_guard lock(mutex_);
    answers_.insert_or_assign(std::string(key), answer);
}

Host& SilentHost() noexcept
{
    static Host host;
    return host;
}

} // namespace vimbo
