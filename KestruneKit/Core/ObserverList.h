#pragma once
// Callbacks told of a change, each under an id for removal. An observer may add or remove
// observers (itself included) while being told; one removed during a round is not called after
// its removal, so its owner may be gone by then.
//
//   ObserverList<const std::string&> observers;
//   auto id = observers.add([](const std::string& key) { ... });
//   observers.notify("iconSize");
//   observers.remove(id);
//
// Main thread only.

#include <cstdint>
#include <functional>
#include <map>
#include <memory>

namespace kestrune {

template<typename... Args>
class ObserverList {
public:
    using Observer = std::function<void(Args...)>;

    uint64_t add(Observer observer)
    {
        observers_.emplace(next_, std::make_shared<Observer>(std::move(observer)));
        return next_++;
    }

    void remove(uint64_t id) { observers_.erase(id); }

    [[nodiscard]] bool empty() const { return observers_.empty(); }

    void notify(Args... args)
    {
        // Walk by id, looking each one up again: the map may change under a call.
        uint64_t last = next_;
        for (auto it = observers_.begin(); it != observers_.end() && it->first < last;) {
            uint64_t id = it->first;
            auto observer = it->second;
            (*observer)(args...);
            it = observers_.upper_bound(id);
        }
    }

private:
    std::map<uint64_t, std::shared_ptr<Observer>> observers_;
    uint64_t next_ = 1;
};

} // namespace kestrune
