#include "cli/interrupt.h"

#include <atomic>

#include <csignal>

namespace vimbo::cli {

namespace {

std::atomic<bool> interrupted = false;
static_assert(std::atomic<bool>::is_always_lock_free);

extern "C" void NoteInterrupt(int)
{
    interrupted = true;
}

} // namespace

void WatchInterrupts() noexcept
{
    struct sigaction action = {};
    action.sa_handler = NoteInterrupt;
    action.sa_flags = SA_RESTART | static_cast<int>(SA_RESETHAND);
    sigemptyset(&action.sa_mask);
    for (const int signal : {SIGINT, SIGTERM, SIGHUP}) {
        struct sigaction old = {};
        // nohup and background jobs of simple shells have a signal ignored; leave that so
        if (::sigaction(signal, nullptr, &old) == 0 && old.sa_handler != SIG_IGN)
            ::sigaction(signal, &action, nullptr);
    }
}

bool IsInterrupted() noexcept
{
    return interrupted;
}

} // namespace vimbo::cli
