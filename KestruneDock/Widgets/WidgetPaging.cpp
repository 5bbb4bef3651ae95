#include "KestruneDock/Widgets/WidgetPaging.h"

#include <algorithm>
#include <set>

#include <fmt/format.h>

namespace kestrune {

std::string_view toString(WidgetOverflow overflow) { return overflow == WidgetOverflow::stack ? "stack" : "pages"; }

WidgetOverflow widgetOverflowFromPreference(const std::optional<std::string>& stored)
{
    return stored && *stored == "stack" ? WidgetOverflow::stack : WidgetOverflow::pages;
}

double WidgetPageCut::runLength(std::span<const double> lengths, size_t first, size_t end, double gap)
{
    if (end <= first)
        return 0;
    double total = 0;
    for (size_t i = first; i < end; ++i)
        total += lengths[i];
    return total + gap * static_cast<double>(end - first - 1);
}

std::vector<std::pair<size_t, size_t>> WidgetPageCut::cut(std::span<const double> lengths, double available, double gap)
{
    std::vector<std::pair<size_t, size_t>> runs;
    if (lengths.empty()) {
        runs.emplace_back(0, 0);
        return runs;
    }
    // The run grows one widget at a time, so its length is carried along rather than summed
    // again; a widget longer than the room still gets a page of its own.
    size_t first = 0;
    double run = lengths[0];
    for (size_t k = 1; k < lengths.size(); ++k) {
        double extended = run + gap + lengths[k];
        if (extended > available) {
            runs.emplace_back(first, k);
            first = k;
            run = lengths[k];
        } else {
            run = extended;
        }
    }
    runs.emplace_back(first, lengths.size());
    return runs;
}

size_t WidgetPageCut::pageCount(std::span<const double> lengths, double available, double gap)
{
    return cut(lengths, available, gap).size();
}

WidgetPaging::WidgetPaging(WidgetStore& store, Preferences& preferences)
    : store_(store)
    , preferences_(preferences)
{
    readOverflow();
    takeOrder(store_.instances());
    recompute();
    storeWatch_ = store_.addObserver([this](const std::vector<WidgetInstance>& instances) {
        auto before = order_;
        takeOrder(instances);
        if (order_ != before)
            recompute();
    });
    defaultsWatch_ = preferences_.addObserver([this](const std::string& key) {
        if (key != overflowKey)
            return;
        auto before = overflow_;
        readOverflow();
        if (overflow_ != before)
            recompute();
    });
}

WidgetPaging::~WidgetPaging()
{
    store_.removeObserver(storeWatch_);
    preferences_.removeObserver(defaultsWatch_);
}

void WidgetPaging::takeOrder(const std::vector<WidgetInstance>& instances)
{
    // Only the ids matter here: a new face or option changes no tile's place.
    std::set<Uuid> seen;
    std::vector<Uuid> order;
    order.reserve(instances.size());
    for (const auto& instance : instances)
        if (seen.insert(instance.id).second)
            order.push_back(instance.id);
    order_ = std::move(order);
    std::erase_if(measurements_, [&](const auto& entry) { return !seen.contains(entry.first); });
}

void WidgetPaging::readOverflow() { overflow_ = widgetOverflowFromPreference(preferences_.stringValue(overflowKey)); }

void WidgetPaging::setIconSize(double iconSize)
{
    if (iconSize > 0 && iconSize != iconSize_) {
        iconSize_ = iconSize;
        recompute();
    }
}

void WidgetPaging::setEdge(DockEdge edge)
{
    if (edge != edge_) {
        edge_ = edge;
        recompute();
    }
}

void WidgetPaging::setAvailable(double available)
{
    available = std::max(0.0, available);
    if (available != available_) {
        available_ = available;
        recompute();
    }
}

void WidgetPaging::setMeasurement(const Uuid& id, double length)
{
    if (std::find(order_.begin(), order_.end(), id) == order_.end() || !(length >= 0))
        return;
    auto [entry, added] = measurements_.try_emplace(id, length);
    if (!added && entry->second == length)
        return;
    entry->second = length;
    recompute();
}

double WidgetPaging::lengthOf(const Uuid& id) const
{
    auto found = measurements_.find(id);
    return found == measurements_.end() ? iconSize_ : found->second;
}

double WidgetPaging::controlLength() const { return iconSize_ / 2 + WidgetPageCut::gap(iconSize_); }

bool WidgetPaging::keepsCurrentCut(double room) const
{
    if (pages_.size() < 2)
        return false;
    // The pages must hold the row itself, in its order: a moved widget needs a new cut.
    size_t held = 0;
    for (const auto& page : pages_) {
        for (const auto& id : page)
            if (held >= order_.size() || order_[held++] != id)
                return false;
    }
    if (held != order_.size())
        return false;
    for (size_t i = 0; i < order_.size(); ++i) {
        auto cut = cutLengths_.find(order_[i]);
        if (cut == cutLengths_.end() || std::abs(lengths_[i] - cut->second) > cutTolerance)
            return false;
    }
    double gap = WidgetPageCut::gap(iconSize_);
    size_t first = 0;
    for (const auto& page : pages_) {
        if (page.size() > 1 && WidgetPageCut::runLength(lengths_, first, first + page.size(), gap) > room)
            return false;
        first += page.size();
    }
    return pages_.size() == WidgetPageCut::pageCount(lengths_, room, gap);
}

void WidgetPaging::recompute(bool stepped)
{
    auto previousPages = pages_;
    auto previousShown = shown_;
    auto previousStacked = stacked_;
    auto previousPage = page_;
    auto previousPresented = presented_;

    lengths_.clear();
    lengths_.reserve(order_.size());
    for (const auto& id : order_)
        lengths_.push_back(lengthOf(id));
    double gap = WidgetPageCut::gap(iconSize_);
    double whole = WidgetPageCut::runLength(lengths_, 0, lengths_.size(), gap);
    bool allFit = whole <= available_;
    double room = std::max(0.0, available_ - controlLength());

    auto recordCut = [&] {
        cutLengths_.clear();
        for (size_t i = 0; i < order_.size(); ++i)
            cutLengths_[order_[i]] = lengths_[i];
    };

    if (overflow_ == WidgetOverflow::pages) {
        stacked_.clear();
        if (allFit || order_.size() < 2) {
            pages_ = { order_ };
            recordCut();
        } else if (!keepsCurrentCut(room)) {
            pages_.clear();
            for (auto [first, end] : WidgetPageCut::cut(lengths_, room, gap))
                pages_.emplace_back(order_.begin() + static_cast<ptrdiff_t>(first), order_.begin() + static_cast<ptrdiff_t>(end));
            recordCut();
        }
        page_ = std::min(page_, pages_.size() - 1);
        shown_ = pages_[page_];
        size_t first = 0;
        for (size_t i = 0; i < page_; ++i)
            first += pages_[i].size();
        rest_ = available_ - WidgetPageCut::runLength(lengths_, first, first + shown_.size(), gap) - (pages_.size() > 1 ? controlLength() : 0);
    } else {
        pages_ = { order_ };
        page_ = 0;
        recordCut();
        size_t fits = order_.size();
        if (!allFit) {
            fits = 0;
            double run = 0;
            while (fits < order_.size() && (fits == 0 ? lengths_[0] : run + gap + lengths_[fits]) <= room) {
                run = fits == 0 ? lengths_[0] : run + gap + lengths_[fits];
                ++fits;
            }
        }
        shown_.assign(order_.begin(), order_.begin() + static_cast<ptrdiff_t>(fits));
        stacked_.assign(order_.begin() + static_cast<ptrdiff_t>(fits), order_.end());
        rest_ = available_ - WidgetPageCut::runLength(lengths_, 0, fits, gap) - (stacked_.empty() ? 0 : controlLength());
    }

    if (presented_ && std::find(order_.begin(), order_.end(), *presented_) == order_.end()) {
        presented_.reset();
        presentedFrom_.reset();
    }

    if (stepped || pages_ != previousPages || shown_ != previousShown || stacked_ != previousStacked || page_ != previousPage || presented_ != previousPresented)
        observers_.notify();
}

void WidgetPaging::showNextPage()
{
    if (overflow_ != WidgetOverflow::pages || pages_.size() < 2)
        return;
    page_ = (page_ + 1) % pages_.size();
    transition_ = WidgetPageTransition::forward;
    recompute(true);
}

void WidgetPaging::showPreviousPage()
{
    if (overflow_ != WidgetOverflow::pages || pages_.size() < 2)
        return;
    page_ = (page_ + pages_.size() - 1) % pages_.size();
    transition_ = WidgetPageTransition::backward;
    recompute(true);
}

void WidgetPaging::present(const Uuid& id, std::optional<Uuid> from)
{
    if (std::find(order_.begin(), order_.end(), id) == order_.end())
        return;
    presented_ = id;
    presentedFrom_ = from;
    observers_.notify();
}

void WidgetPaging::dismiss()
{
    if (!presented_)
        return;
    presented_.reset();
    presentedFrom_.reset();
    observers_.notify();
}

bool WidgetPaging::showsPagesTile() const { return overflow_ == WidgetOverflow::pages && pages_.size() > 1; }

bool WidgetPaging::showsStackTile() const { return overflow_ == WidgetOverflow::stack && !stacked_.empty(); }

std::string WidgetPaging::stackTitle(size_t count)
{
    return count == 1 ? std::string("1 more widget") : fmt::format("{} more widgets", count);
}

std::string WidgetPaging::stackHelp(size_t count) { return stackTitle(count) + " · Click to show them, or drag a widget here to put it in"; }

std::string WidgetPaging::pagesHelp() { return "More widgets · ⌥-click for the ones before"; }

std::string WidgetPaging::accessibilityLabel(size_t page, size_t pageCount)
{
    return fmt::format("Widgets, page {} of {}", page + 1, pageCount);
}

std::string WidgetPaging::stackedLabel(std::string_view title) { return "In the stack · " + std::string(title); }

uint64_t WidgetPaging::addObserver(std::function<void()> observer) { return observers_.add(std::move(observer)); }

void WidgetPaging::removeObserver(uint64_t id) { observers_.remove(id); }

} // namespace kestrune
