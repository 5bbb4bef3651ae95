#pragma once
// A registered demand that withdraws itself: move-only, and releasing or destroying it calls
// `owner.release(id)` if the owner is still alive. Owners hand out tokens over a
// std::shared_ptr<Owner*> that they reset first in their destructor.
//
//   class Sampler { ... friend class DemandToken<Sampler>; void release(uint64_t id); std::shared_ptr<Sampler*> self_; };
//   DemandToken<Sampler> token(self_, id);

#include <cstdint>
#include <memory>
#include <utility>

namespace kestrune {

template<typename Owner>
class DemandToken {
public:
    DemandToken() = default;
    DemandToken(std::weak_ptr<Owner*> owner, uint64_t id) : owner_(std::move(owner)), id_(id) {}
    DemandToken(DemandToken&& other) noexcept : owner_(std::move(other.owner_)), id_(std::exchange(other.id_, 0)) {}
    DemandToken& operator=(DemandToken&& other) noexcept
    {
        if (this != &other) {
            release();
            owner_ = std::move(other.owner_);
            id_ = std::exchange(other.id_, 0);
        }
        return *this;
    }
    DemandToken(const DemandToken&) = delete;
    DemandToken& operator=(const DemandToken&) = delete;
    ~DemandToken() { release(); }

    void release()
    {
        if (auto owner = owner_.lock(); owner && id_)
            (*owner)->release(id_);
        owner_.reset();
        id_ = 0;
    }

private:
    std::weak_ptr<Owner*> owner_;
    uint64_t id_ = 0;
};

} // namespace kestrune
