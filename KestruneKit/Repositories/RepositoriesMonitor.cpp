#include "KestruneKit/Repositories/RepositoriesMonitor.h"

#include <algorithm>

namespace kestrune {

RepositoriesMonitor::RepositoriesMonitor(Runtime& runtime, KestruneActivity& activity, std::shared_ptr<const RepositoryReader> reader,
                                         std::shared_ptr<const GitActions> actions)
    : runtime_(runtime)
    , activity_(activity)
    , reader_(reader ? std::move(reader) : std::make_shared<const RepositoryReader>())
    , actions_(actions ? std::move(actions) : std::make_shared<const GitActions>())
    , self_(std::make_shared<RepositoriesMonitor*>(this))
{
}

RepositoriesMonitor::~RepositoriesMonitor() { *self_ = nullptr; }

void RepositoriesMonitor::setWanted(std::vector<std::string> folders)
{
    if (folders == wanted_)
        return;
    wanted_ = std::move(folders);
    ++generation_;
    std::erase_if(states_, [this](const auto& entry) {
        return std::find(wanted_.begin(), wanted_.end(), entry.first) == wanted_.end();
    });
}

DevPoller& RepositoriesMonitor::poller()
{
    if (!poller_)
        poller_ = std::make_unique<DevPoller>(runtime_, activity_, interval, [this] { readAll(); });
    return *poller_;
}

void RepositoriesMonitor::readAll()
{
    for (const auto& folder : wanted_)
        read(folder);
}

void RepositoriesMonitor::read(const std::string& folder)
{
    if (std::find(wanted_.begin(), wanted_.end(), folder) == wanted_.end())
        return;
    std::weak_ptr<RepositoriesMonitor*> weak = self_;
    queue_.async([weak, reader = reader_, &runtime = runtime_, generation = generation_, folder] {
        // Dated on arrival: the runtime's clock belongs to the main thread.
        RepositoryState state = reader->read(folder, Date {});
        runtime.post([weak, generation, state = std::move(state)]() mutable {
            if (auto self = weak.lock(); self && *self)
                (*self)->apply(generation, std::move(state));
        });
    });
}

void RepositoriesMonitor::perform(GitAction action, const std::string& folder, const std::string& message,
                                  std::function<void(GitActionResult)> done)
{
    std::weak_ptr<RepositoriesMonitor*> weak = self_;
    queue_.async([weak, actions = actions_, &runtime = runtime_, action, folder, message, done = std::move(done)] {
        GitActionResult result = actions->run(action, folder, message);
        runtime.post([weak, folder, done, result = std::move(result)]() mutable {
            auto self = weak.lock();
            if (!self || !*self)
                return;
            (*self)->read(folder);
            if (done)
                done(std::move(result));
        });
    });
}

void RepositoriesMonitor::apply(uint64_t generation, RepositoryState state)
{
    if (generation != generation_)
        return;
    state.readAt = runtime_.now();
    auto* failure = state.failure();
    hasGit_ = !(failure && failure->problem == RepositoryProblem::noGit);
    auto folder = state.folder;
    states_.insert_or_assign(folder, std::move(state));
    if (onChange)
        onChange(folder);
}

} // namespace kestrune
