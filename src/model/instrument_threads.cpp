#include "model/instrument_threads.h"

#include "base/worker_pool.h"
#include "model/instrument.h"

#include <exception>
#include <mutex>

namespace vimbo {
namespace {

/// Below this, making threads takes longer than what they save.
constexpr std::size_t kWorthThreads = 2000; // regions

} // namespace

void ForEachInstrument(Collection& collection, const std::function<void(Instrument&)>& work)
{
    ForEachInstrument(collection.List<Instrument>(),
                      [&work](Instrument& instrument, std::size_t /*place*/) { work(instrument); });
}

void ForEachInstrument(std::span<Instrument* const> instruments,
                       const std::function<void(Instrument&, std::size_t)>& work)
{
    if (instruments.size() < 2 || instruments.front()->Owner().CountOf(ItemKind::Region) < kWorthThreads ||
        CoreCount() < 2) {
        for (std::size_t i = 0; i < instruments.size(); ++i)
            work(*instruments[i], i);
        return;
    }
    std::mutex mutex;
    std::exception_ptr thrown;
    {
        const LateRemovalScope scope(instruments.front()->Owner());
        RunJobs(instruments.size(), 0, [&](std::size_t i) {
            try {
                work(*instruments[i], i);
            } catch (...) {
                const std::lock_guard lock(mutex);
                thrown = std::current_exception();
            }
        });
    }
    if (thrown)
        std::rethrow_exception(thrown);
}

bool HasStrays(const Collection& collection)
{
    std::size_t layers = 0, regions = 0;
    for (const Instrument& instrument : collection.All<Instrument>()) {
        layers += instrument.Children().size();
        for (const Layer* layer : instrument.Layers())
            regions += layer->Children().size();
    }
    return layers != collection.CountOf(ItemKind::Layer) || regions != collection.CountOf(ItemKind::Region);
}

} // namespace vimbo
