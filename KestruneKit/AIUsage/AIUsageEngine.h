#pragma once
// OVERVIEW
// The AI usage engine: idle until something on screen registers a demand, then it watches the
// tools' files, counts each tool's tokens on the counter's own queue, reads the plan limits, and
// publishes one AIUsageSnapshot at a time on the main thread.
//
// TYPICAL USAGE
//   AIUsageEngine engine(runtime, homeFolder(), applicationSupportFolder(environment, home));
//   engine.onChange = [&] { render(engine.snapshot()); };
//   AIUsageEngine::Demand demand = engine.demand(AIUsageEngine::Demand::Tokens::live);
//   // ... the widget goes away: the demand with it, and the engine stops watching.
//
// Each slot runs a small state machine: a change marks it `changed` and schedules its count
// after the counter's settle delay; while it counts (`reading`) a further change sets `again`,
// and the count is made once more when it ends. Limits reading uses the same triple. When the
// last demand goes, `generation` is bumped so that counts still in flight are dropped; the
// counters keep their marks, so the next start reads only what is new.
//
// Main thread only, but for the counting, limits reading and Codex asking it starts.

#include <array>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>

#include "KestruneKit/AIUsage/AIUsageCodexServer.h"
#include "KestruneKit/AIUsage/AIUsageFolderWatch.h"
#include "KestruneKit/AIUsage/AIUsageReader.h"
#include "KestruneKit/Core/DemandToken.h"
#include "KestruneKit/Core/Runtime.h"
#include "KestruneKit/Core/SerialQueue.h"

namespace kestrune {

// When the engine may start Codex's app server to ask for its limits.
enum class AIUsageAsksCodex { never, whenLimitsUnknown, always };

struct AIUsageEngineConfiguration {
    // What the engine calls itself to Codex's app server.
    std::string clientName = "kestrune-dock";
    std::string clientTitle = "Kestrune Dock";
    std::string clientVersion = "0.1";
    // Which tools' tokens to count.
    std::vector<AIUsageTool> tokens { allAIUsageTools.begin(), allAIUsageTools.end() };
    AIUsageAsksCodex asksCodex = AIUsageAsksCodex::whenLimitsUnknown;
    // The codex program; looked for in its usual places when empty.
    std::string codexPath;
    Seconds codexDeadline = Seconds(20);
    // Off in tests that drive changes by hand.
    bool watches = true;
};

class AIUsageEngine {
public:
    using AsksCodex = AIUsageAsksCodex;
    using Configuration = AIUsageEngineConfiguration;

    // A registered demand; releasing or destroying it withdraws it.
    class Demand : public DemandToken<AIUsageEngine> {
    public:
        // How much token counting is wanted: none (limits only), a count when the demand starts,
        // or live counts that follow the files as they change.
        enum class Tokens { none = 0, cache = 1, live = 2 };
        using DemandToken::DemandToken;
    };

    struct TokenSlot {
        std::unique_ptr<AIUsageTokenCounter> counter;
        bool active = false;
        std::unique_ptr<AIUsageFolderWatch> watch;
        bool changed = false;
        TimerHandle work;
        bool reading = false;
        bool again = false;
        std::optional<AIUsageTokenUse> use;
        bool present = false;
        // Last, so that a count still running ends before the counter goes.
        std::unique_ptr<SerialQueue> queue = std::make_unique<SerialQueue>();
    };

    AIUsageEngine(Runtime& runtime, std::string home, std::string appFolder, Configuration configuration = {});
    ~AIUsageEngine();
    AIUsageEngine(const AIUsageEngine&) = delete;
    AIUsageEngine& operator=(const AIUsageEngine&) = delete;

    [[nodiscard]] Demand demand(Demand::Tokens tokens);
    [[nodiscard]] const AIUsageSnapshot& snapshot() const { return snapshot_; }
    std::function<void()> onChange;

    // A counter's files changed (the watches call this; so may a caller that knows better).
    void noteChange(AIUsageTool tool);
    // A limits file changed.
    void noteLimitsChange();
    // Sample figures, for showing the widget without real use.
    void setDemo(bool demo);

    [[nodiscard]] uint64_t generation() const { return generation_; }
    [[nodiscard]] const TokenSlot& slot(AIUsageTool tool) const { return slots_[static_cast<size_t>(tool)]; }
    [[nodiscard]] bool isReadingLimits() const { return readingLimits_; }
    [[nodiscard]] bool isAskingCodex() const { return askingCodex_; }
    // What the Codex row says while its limits are unknown or have started over; empty otherwise.
    [[nodiscard]] std::string_view codexHint() const { return codexHint_; }
    // One line for diagnostics.
    [[nodiscard]] std::string description() const;

private:
    friend class DemandToken<AIUsageEngine>;
    void release(uint64_t id);
    void update();
    void start();
    void stop();
    void watchSlots();
    [[nodiscard]] Demand::Tokens level() const;
    void count(AIUsageTool tool);
    void readLimits();
    void maybeAskCodex();
    void publish();
    [[nodiscard]] std::function<void(const std::string&)> poster(std::function<void(AIUsageEngine&, const std::string&)> action) const;

    Runtime& runtime_;
    AIUsageFileStamp configStamp_;
    std::optional<AIUsageClaudeConfig::Result> config_;
    AIUsageFileStamp bridgeStamp_;
    std::optional<AIUsageStatusLine::Limits> bridge_;
    std::optional<AIUsageCodexLimits> codexLog_;
    std::optional<AIUsageCodexLimits> codexLive_;
    AIUsageSnapshot snapshot_;
    bool demo_ = false;
    Configuration configuration_;
    std::map<uint64_t, Demand::Tokens> demands_;
    uint64_t nextDemand_ = 1;
    AIUsageReader reader_;
    std::array<TokenSlot, 6> slots_;
    TimerHandle codexReset_;
    uint64_t generation_ = 0;
    bool watching_ = false;
    std::unique_ptr<AIUsageFileWatch> configWatch_;
    std::unique_ptr<AIUsageFileWatch> settingsWatch_;
    std::unique_ptr<AIUsageFileWatch> bridgeWatch_;
    std::unique_ptr<AIUsageFileWatch> seenWatch_;
    std::unique_ptr<AIUsageFolderWatch> codexWatch_;
    AIUsageStatusLineState bridgeState_;
    TimerHandle limitsWork_;
    bool readingLimits_ = false;
    bool limitsAgain_ = false;
    std::string_view codexHint_;
    bool codexAsked_ = false;
    bool askingCodex_ = false;
    std::optional<Date> codexAskedAt_;
    // The queues last but for self_: a read still running ends before what it reads goes.
    SerialQueue queue_;
    SerialQueue codexQueue_;
    std::shared_ptr<AIUsageEngine*> self_;
};

[[nodiscard]] std::string_view toString(AIUsageEngine::AsksCodex asks);
[[nodiscard]] std::optional<AIUsageEngine::AsksCodex> asksCodexFromString(std::string_view raw);
[[nodiscard]] std::string_view toString(AIUsageEngine::Demand::Tokens tokens);

} // namespace kestrune
