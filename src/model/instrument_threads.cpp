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
    const std::vector<Instrument*> instruments = collection.List<Instrument>();
    if (collection.CountOf(ItemKind::Region) < kWorthThreads || instruments.size() < 2 || CoreCount() < 2) {
        for (Instrument* instrument : instruments)
            work(*instrument);
        return;
    }
    std::mutex mutex;
    std::exception_ptr thrown;
    {
        const LateRemovalScope scope(collection);
        RunJobs(instruments.size(), 0, [&](std::size_t i) {
            try {
                work(*instruments[i]);
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
