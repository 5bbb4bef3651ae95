#pragma once
// Who wants a thing kept going (tiles by their ids, cards …): the thing runs while anyone does.
//
//   if (holders_.set(tileId, shown)) holders_.any() ? start() : stop();

#include <set>
#include <string>

namespace kestrune {

class Holders {
public:
    // True when the change started or ended the wanting.
    bool set(const std::string& holder, bool wants)
    {
        bool was = any();
        if (wants)
            holders_.insert(holder);
        else
            holders_.erase(holder);
        return was != any();
    }
    [[nodiscard]] bool any() const { return !holders_.empty(); }
    [[nodiscard]] const std::set<std::string>& all() const { return holders_; }

private:
    std::set<std::string> holders_;
};

} // namespace kestrune
