#include "KestruneKit/AIUsage/AIUsageEngine.h"

#include <algorithm>

#include <fmt/format.h>

#include "KestruneKit/Core/AtomicFile.h"
#include "KestruneKit/Core/RawNames.h"

namespace kestrune {

namespace {

using Tokens = AIUsageEngine::Demand::Tokens;

constexpr RawNames<AIUsageEngine::AsksCodex, 3> asksCodexNames { { {
    { AIUsageEngine::AsksCodex::never, "never" },
    { AIUsageEngine::AsksCodex::whenLimitsUnknown, "whenLimitsUnknown" },
    { AIUsageEngine::AsksCodex::always, "always" },
} } };

constexpr RawNames<Tokens, 3> tokensNames { { {
    { Tokens::none, "none" },
    { Tokens::cache, "cache" },
    { Tokens::live, "live" },
} } };

// Codex is a program of its own that signs in and talks to its servers: asking it again and
// again when it has nothing to say would cost the user more than the answer is worth.
constexpr Seconds codexAskInterval { 300 };

const char* flag(bool value) { return value ? "true" : "false"; }

} // namespace

std::string_view toString(AIUsageEngine::AsksCodex asks) { return asksCodexNames.name(asks); }
std::optional<AIUsageEngine::AsksCodex> asksCodexFromString(std::string_view raw) { return asksCodexNames.value(raw); }
std::string_view toString(AIUsageEngine::Demand::Tokens tokens) { return tokensNames.name(tokens); }

AIUsageEngine::AIUsageEngine(Runtime& runtime, std::string home, std::string appFolder, Configuration configuration)
    : runtime_(runtime), configuration_(std::move(configuration)), reader_(std::move(home), std::move(appFolder)),
      self_(std::make_shared<AIUsageEngine*>(this))
{
    auto counters = makeCounters(reader_.home());
    for (size_t index = 0; index < counters.size(); ++index)
        slots_[index].counter = std::move(counters[index]);
}

AIUsageEngine::~AIUsageEngine()
{
    self_.reset();
    stop();
}

AIUsageEngine::Demand AIUsageEngine::demand(Demand::Tokens tokens)
{
    uint64_t id = nextDemand_++;
    demands_[id] = tokens;
    update();
    return Demand(self_, id);
}

void AIUsageEngine::release(uint64_t id)
{
    demands_.erase(id);
    update();
}

AIUsageEngine::Demand::Tokens AIUsageEngine::level() const
{
    Tokens highest = Tokens::none;
    for (const auto& [id, tokens] : demands_)
        highest = std::max(highest, tokens);
    return highest;
}

void AIUsageEngine::update()
{
    if (demands_.empty()) {
        if (watching_)
            stop();
        return;
    }
    Tokens tokens = level();
    for (auto& slot : slots_) {
        auto tool = slot.counter->tool();
        bool counted = std::find(configuration_.tokens.begin(), configuration_.tokens.end(), tool) != configuration_.tokens.end();
        // Codex's log also carries its limits, so it is read whenever anything is wanted.
        bool active = tool == AIUsageTool::codex || (counted && tokens >= Tokens::cache);
        bool starting = active && !slot.active;
        slot.active = active;
        if (starting && watching_)
            count(tool);
    }
    if (!watching_)
        start();
    else
        watchSlots();
}

std::function<void(const std::string&)> AIUsageEngine::poster(std::function<void(AIUsageEngine&, const std::string&)> action) const
{
    return [&runtime = runtime_, weak = std::weak_ptr(self_), action = std::move(action)](const std::string& path) {
        runtime.post([weak, action, path] {
            if (auto self = weak.lock())
                action(**self, path);
        });
    };
}

void AIUsageEngine::start()
{
    watching_ = true;
    if (configuration_.watches) {
        // Our own folder, where the status-line script saves the limits: made now so that its
        // watch is a real one from the start.
        (void)createFolders(reader_.statusLine().folder);
        auto limitsChanged = poster([](AIUsageEngine& engine, const std::string&) { engine.noteLimitsChange(); });
        auto limits = [limitsChanged] { limitsChanged({}); };
        configWatch_ = std::make_unique<AIUsageFileWatch>(reader_.claudeConfigPath(), limits);
        settingsWatch_ = std::make_unique<AIUsageFileWatch>(reader_.claudeSettingsPath(), limits);
        bridgeWatch_ = std::make_unique<AIUsageFileWatch>(reader_.statusLine().limitsFile(), limits);
        seenWatch_ = std::make_unique<AIUsageFileWatch>(reader_.statusLine().seenMarker(), limits);
        const auto& codex = slot(AIUsageTool::codex).counter;
        codexWatch_ = std::make_unique<AIUsageFolderWatch>(codex->root(), AIUsageFolderWatch::Depth::tree,
                                                           poster([](AIUsageEngine& engine, const std::string& path) {
                                                               if (path.empty() || engine.slot(AIUsageTool::codex).counter->concerns(path)
                                                                   || path == engine.slot(AIUsageTool::codex).counter->root())
                                                                   engine.noteChange(AIUsageTool::codex);
                                                           }));
    }
    watchSlots();
    for (auto& slot : slots_)
        if (slot.active)
            count(slot.counter->tool());
    readLimits();
}

void AIUsageEngine::watchSlots()
{
    bool live = level() == Tokens::live && configuration_.watches;
    for (auto& slot : slots_) {
        auto tool = slot.counter->tool();
        bool wanted = live && slot.active && tool != AIUsageTool::codex;
        if (wanted && !slot.watch) {
            slot.watch = std::make_unique<AIUsageFolderWatch>(slot.counter->root(), AIUsageFolderWatch::Depth::tree,
                                                              poster([tool](AIUsageEngine& engine, const std::string& path) {
                                                                  const auto& counter = *engine.slot(tool).counter;
                                                                  if (counter.concerns(path) || path == counter.root())
                                                                      engine.noteChange(tool);
                                                              }));
        } else if (!wanted) {
            slot.watch.reset();
        }
    }
}

void AIUsageEngine::stop()
{
    watching_ = false;
    ++generation_;
    configWatch_.reset();
    settingsWatch_.reset();
    bridgeWatch_.reset();
    seenWatch_.reset();
    codexWatch_.reset();
    for (auto& slot : slots_) {
        slot.watch.reset();
        slot.work.cancel();
        slot.active = slot.changed = slot.reading = slot.again = false;
    }
    limitsWork_.cancel();
    codexReset_.cancel();
    readingLimits_ = limitsAgain_ = false;
    askingCodex_ = false;
}

void AIUsageEngine::noteChange(AIUsageTool tool)
{
    auto& slot = slots_[static_cast<size_t>(tool)];
    if (!watching_ || !slot.active)
        return;
    if (slot.reading) {
        slot.again = true;
        return;
    }
    slot.changed = true;
    // Changes during the settle delay fold into the count already scheduled.
    if (slot.work.isArmed())
        return;
    slot.work = runtime_.schedule(slot.counter->latency(), TimerRepeat::once, Seconds(0.5), [this, tool] {
        slots_[static_cast<size_t>(tool)].changed = false;
        count(tool);
    });
}

void AIUsageEngine::count(AIUsageTool tool)
{
    auto& slot = slots_[static_cast<size_t>(tool)];
    if (slot.reading) {
        slot.again = true;
        return;
    }
    slot.reading = true;
    slot.work.cancel();
    auto windows = aiUsageWindows(runtime_.now(), localeFirstWeekday());
    auto* counter = slot.counter.get();
    slot.queue->async([&runtime = runtime_, weak = std::weak_ptr(self_), generation = generation_, counter, windows, tool] {
        auto use = counter->count(windows);
        bool present = counter->isPresent();
        std::optional<AIUsageCodexLimits> limits;
        if (auto* codex = dynamic_cast<AIUsageCodexLog*>(counter))
            limits = codex->latestLimits();
        runtime.post([weak, generation, tool, use, present, limits] {
            auto self = weak.lock();
            if (!self || (*self)->generation_ != generation)
                return;
            auto& engine = **self;
            auto& slot = engine.slots_[static_cast<size_t>(tool)];
            slot.reading = false;
            slot.use = use;
            slot.present = present;
            if (tool == AIUsageTool::codex) {
                engine.codexLog_ = limits;
                engine.maybeAskCodex();
            }
            engine.publish();
            if (std::exchange(slot.again, false))
                engine.count(tool);
        });
    });
    // Last: an observer may release the engine's demand from its callback.
    publish();
}

void AIUsageEngine::noteLimitsChange()
{
    if (!watching_ || limitsWork_.isArmed())
        return;
    // The status-line script writes the seen-marker and then the limits: one look covers both.
    limitsWork_ = runtime_.schedule(Seconds(0.5), TimerRepeat::once, Seconds(0.2), [this] { readLimits(); });
}

void AIUsageEngine::readLimits()
{
    if (readingLimits_) {
        limitsAgain_ = true;
        return;
    }
    readingLimits_ = true;
    limitsWork_.cancel();
    AIUsageReader::Limits previous { configStamp_, config_, bridgeStamp_, bridge_, bridgeState_ };
    queue_.async([&runtime = runtime_, weak = std::weak_ptr(self_), generation = generation_, reader = &reader_, previous] {
        auto limits = reader->readLimits(previous);
        runtime.post([weak, generation, limits] {
            auto self = weak.lock();
            if (!self || (*self)->generation_ != generation)
                return;
            auto& engine = **self;
            engine.readingLimits_ = false;
            engine.configStamp_ = limits.configStamp;
            engine.config_ = limits.config;
            engine.bridgeStamp_ = limits.bridgeStamp;
            engine.bridge_ = limits.bridge;
            engine.bridgeState_ = limits.bridgeState;
            engine.maybeAskCodex();
            engine.publish();
            if (std::exchange(engine.limitsAgain_, false))
                engine.readLimits();
        });
    });
}

void AIUsageEngine::maybeAskCodex()
{
    auto asks = configuration_.asksCodex;
    if (askingCodex_ || asks == AsksCodex::never || !slot(AIUsageTool::codex).present)
        return;
    Date now = runtime_.now();
    if (codexAskedAt_ && secondsBetween(*codexAskedAt_, now) < codexAskInterval)
        return;
    if (asks == AsksCodex::whenLimitsUnknown) {
        auto report = makeReport(AIUsageTool::codex, {}, { {}, {}, codexLog_, codexLive_ });
        bool known = !report.limits.empty()
            && std::none_of(report.limits.begin(), report.limits.end(), [now](const AIUsageLimit& limit) { return limit.hasExpired(now); });
        if (known)
            return;
    }
    std::string codex = configuration_.codexPath.empty() ? locateCodex(reader_.home()).value_or("") : configuration_.codexPath;
    if (codex.empty())
        return;
    askingCodex_ = true;
    codexAskedAt_ = now;
    AIUsageCodexClient client { configuration_.clientName, configuration_.clientTitle, configuration_.clientVersion };
    codexQueue_.async([&runtime = runtime_, weak = std::weak_ptr(self_), generation = generation_, codex, home = reader_.home(), client,
                       deadline = configuration_.codexDeadline] {
        auto limits = askCodex(codex, home, client, deadline);
        runtime.post([weak, generation, limits] {
            auto self = weak.lock();
            if (!self || (*self)->generation_ != generation)
                return;
            auto& engine = **self;
            engine.askingCodex_ = false;
            engine.codexAsked_ = true;
            // No answer leaves the previous limits standing.
            if (limits)
                engine.codexLive_ = limits;
            engine.publish();
        });
    });
}

void AIUsageEngine::publish()
{
    if (demo_)
        return;
    Date now = runtime_.now();
    AIUsageSnapshot snapshot;
    AIUsageSources sources { config_, bridge_, codexLog_, codexLive_ };
    for (const auto& slot : slots_) {
        if (!slot.active)
            continue;
        snapshot.counting = snapshot.counting || (slot.reading && !slot.use);
        snapshot.counted = snapshot.counted || slot.use.has_value();
        if (slot.present)
            snapshot.reports.push_back(makeReport(slot.counter->tool(), slot.use.value_or(AIUsageTokenUse {}), sources));
    }
    snapshot.codexChecked = codexAsked_;
    snapshot.claudeStatusLine = bridgeState_;

    codexHint_ = {};
    codexReset_.cancel();
    if (const auto* codex = snapshot.report(AIUsageTool::codex)) {
        std::optional<Date> nextReset;
        bool expired = false;
        for (const auto& limit : codex->limits) {
            expired = expired || limit.hasExpired(now);
            if (limit.resetsAt && !limit.hasExpired(now) && (!nextReset || *limit.resetsAt < *nextReset))
                nextReset = limit.resetsAt;
        }
        if (codex->limits.empty())
            codexHint_ = AIUsageWords::codexNeverSaid;
        else if (expired)
            codexHint_ = AIUsageWords::codexStartedOver;
        // At the reset the limits start over: show that, and let Codex be asked for new ones.
        if (nextReset && watching_)
            codexReset_ = runtime_.schedule(secondsBetween(now, *nextReset) + Seconds(1), TimerRepeat::once, Seconds(1), [this] {
                publish();
                maybeAskCodex();
            });
    }
    if (snapshot == snapshot_)
        return;
    snapshot_ = std::move(snapshot);
    if (onChange)
        onChange();
}

void AIUsageEngine::setDemo(bool demo)
{
    demo_ = demo;
    if (!demo) {
        snapshot_ = {};
        publish();
        return;
    }
    Date now = runtime_.now();
    auto windows = aiUsageWindows(now, localeFirstWeekday());
    AIUsageSnapshot snapshot;
    snapshot.counted = true;
    int64_t scale = 1;
    for (auto tool : { AIUsageTool::claude, AIUsageTool::codex, AIUsageTool::gemini }) {
        AIUsageTally tally(windows);
        for (int hour = 1; hour <= 30; hour += 3)
            tally.add(windows.now - hour * 3600 * 1000, 180000 * scale / hour);
        AIUsageReport report;
        report.tool = tool;
        report.tokens = tally.finish();
        report.lastActive = report.tokens.lastUsed;
        if (tool != AIUsageTool::gemini) {
            report.limits = { { 42.0 / static_cast<double>(scale), 300, dateAfter(now, Seconds(2 * 3600)), std::nullopt },
                              { 18.0 / static_cast<double>(scale), 10080, dateAfter(now, Seconds(4 * 86400)), std::nullopt } };
            report.source = AIUsageLimitSource::log;
            report.asOf = now;
        }
        snapshot.reports.push_back(std::move(report));
        scale *= 2;
    }
    snapshot_ = std::move(snapshot);
    if (onChange)
        onChange();
}

std::string AIUsageEngine::description() const
{
    bool awake = readingLimits_ || askingCodex_
        || std::any_of(slots_.begin(), slots_.end(), [](const TokenSlot& slot) { return slot.reading || slot.work.isArmed(); });
    bool counting = std::any_of(slots_.begin(), slots_.end(), [](const TokenSlot& slot) { return slot.reading; });
    std::string line = fmt::format("engine {} awake {} watching config {} counting {} tokens {} codex {} bridge {} asksCodex {} askingCodex {} "
                                   "codexReset {} demo {}",
                                   watching_ ? "running" : "idle", flag(awake), flag(configWatch_ != nullptr), flag(counting),
                                   toString(level()), flag(codexLog_ || codexLive_), flag(bridge_.has_value()),
                                   toString(configuration_.asksCodex), flag(askingCodex_), flag(codexReset_.isArmed()), flag(demo_));
    for (const auto& slot : slots_)
        if (slot.watch && !slot.watch->fallback().empty())
            line += fmt::format(" watch {} looks periodically ({})", toString(slot.counter->tool()), slot.watch->fallback());
    if (codexWatch_ && !codexWatch_->fallback().empty())
        line += fmt::format(" watch codex looks periodically ({})", codexWatch_->fallback());
    return line;
}

} // namespace kestrune
