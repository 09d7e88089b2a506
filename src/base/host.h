// Everything that a user may see goes through a Host: the desktop, the command line, the batch and tests
// bring theirs.
#pragma once

#include "base/conversion_note.h"

#include <cstddef>
#include <functional>
#include <map>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace vimbo {

enum class MessageIcon { None, Information, Warning, Error };

/// A question with buttons. `key` names it for hosts that answer from options or a script ("raw-import").
struct Question {
    std::string_view key;
    std::u16string text;
    std::u16string title;
    std::vector<std::u16string> buttons;
    std::size_t defaultButton = 0; ///< what a host that cannot ask answers
};

/// Base class and silent host at once: shows nothing, gives every question its default answer.
/// Thread: a host may be shared by several workers; implementations guard their own state.
class Host {
public:
    Host() = default;
    virtual ~Host() = default;
    Host(const Host&) = delete;
    Host& operator=(const Host&) = delete;

    /// A box with an OK button; never used by drivers for an ordinary failure.
    virtual void ShowMessage(std::u16string_view text, std::u16string_view title, MessageIcon icon);
    /// @return index of the chosen button.
    virtual std::size_t Ask(const Question& question);
    /// Asks for a file that could not be found; false if the user gives up.
    virtual bool PickFile(std::u16string_view text, std::u16string_view filter, std::u16string& path);
    /// Text of the status line; "" clears it.
    virtual void SetStatus(std::u16string_view text);
    /// Progress slot of the status line: what is being worked on, and how far (0..1, negative if unknown). ""
    /// clears it.
    virtual void SetProgress(std::u16string_view what, double fraction = -1.0);
    /// True once the user asked to stop.
    virtual bool IsCancelled() const;
    /// Opens a path or address with the desktop's own program for it.
    [[nodiscard]] virtual bool OpenExternally(std::u16string_view path);

    /// What was kept, approximated and lost by a reader or writer. Only called while WantsNotes.
    virtual void NoteConversion(ConversionNote note);
    /// False (as for hosts that show no report): readers and writers need not gather notes.
    virtual bool WantsNotes() const;

    /// Answers that hold for the rest of the session ("Allways OK"), by question key.
    std::optional<std::size_t> RememberedAnswer(std::string_view key) const;
    void RememberAnswer(std::string_view key, std::size_t answer);

private:
    mutable std::mutex mutex_;
    std::map<std::string, std::size_t, std::less<>> answers_;
};

/// The host of collections that were given none.
Host& SilentHost() noexcept;

} // namespace vimbo
