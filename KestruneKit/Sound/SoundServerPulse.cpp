#include "KestruneKit/Sound/SoundServer.h"

#include <pulse/pulseaudio.h>

#include <cmath>
#include <cstring>
#include <mutex>

namespace kestrune {

namespace {

constexpr const char* notRunning = "PulseAudio isn’t running, so sound can’t be shown";

} // namespace

// Lives on the client library's thread: every callback runs there with the loop's lock held, and
// the main thread takes the same lock for its few calls.
class SoundServer::Connection {
public:
    Connection(Runtime& runtime, std::weak_ptr<SoundServer*> owner, uint64_t generation, std::string server)
        : runtime_(runtime), owner_(std::move(owner)), generation_(generation), server_(std::move(server))
    {
    }

    ~Connection()
    {
        if (!loop_)
            return;
        pa_threaded_mainloop_lock(loop_);
        if (context_) {
            pa_context_set_state_callback(context_, nullptr, nullptr);
            pa_context_set_subscribe_callback(context_, nullptr, nullptr);
            pa_context_disconnect(context_);
            pa_context_unref(context_);
        }
        pa_threaded_mainloop_unlock(loop_);
        pa_threaded_mainloop_stop(loop_);
        pa_threaded_mainloop_free(loop_);
    }

    Connection(const Connection&) = delete;
    Connection& operator=(const Connection&) = delete;

    void start()
    {
        loop_ = pa_threaded_mainloop_new();
        if (!loop_)
            return post(failed());
        pa_proplist* properties = pa_proplist_new();
        pa_proplist_sets(properties, PA_PROP_APPLICATION_NAME, "Kestrune Dock");
        pa_proplist_sets(properties, PA_PROP_APPLICATION_ID, "app.quillane.dock");
        context_ = pa_context_new_with_proplist(pa_threaded_mainloop_get_api(loop_), "Kestrune Dock", properties);
        pa_proplist_free(properties);
        if (!context_)
            return post(failed());
        pa_context_set_state_callback(context_, &Connection::stateChanged, this);
        pa_context_set_subscribe_callback(context_, &Connection::subscribed, this);
        // No autospawn: a dock must not start a sound server the user has chosen not to run.
        if (pa_context_connect(context_, server_.empty() ? nullptr : server_.c_str(), PA_CONTEXT_NOAUTOSPAWN, nullptr) < 0
            || pa_threaded_mainloop_start(loop_) < 0)
            post(failed());
    }

    void setVolume(double volume)
    {
        locked([&] {
            pa_cvolume levels;
            pa_cvolume_set(&levels, channels_, static_cast<pa_volume_t>(std::lround(std::clamp(volume, 0.0, 1.0) * PA_VOLUME_NORM)));
            done(pa_context_set_sink_volume_by_name(context_, defaultSink_.c_str(), &levels, nullptr, nullptr));
        });
    }

    void setMuted(bool muted)
    {
        locked([&] { done(pa_context_set_sink_mute_by_name(context_, defaultSink_.c_str(), muted, nullptr, nullptr)); });
    }

    void setOutput(const std::string& name)
    {
        locked([&] { done(pa_context_set_default_sink(context_, name.c_str(), nullptr, nullptr)); });
    }

    void setMicrophoneMuted(bool muted)
    {
        locked([&] {
            if (!defaultSource_.empty())
                done(pa_context_set_source_mute_by_name(context_, defaultSource_.c_str(), muted, nullptr, nullptr));
        });
    }

private:
    template <typename Work>
    void locked(Work work)
    {
        if (!loop_ || !context_)
            return;
        pa_threaded_mainloop_lock(loop_);
        if (pa_context_get_state(context_) == PA_CONTEXT_READY)
            work();
        pa_threaded_mainloop_unlock(loop_);
    }

    static void done(pa_operation* operation)
    {
        if (operation)
            pa_operation_unref(operation);
    }

    static SoundState failed()
    {
        SoundState state;
        state.ready = true;
        state.problem = notRunning;
        return state;
    }

    void post(SoundState state)
    {
        runtime_.post([owner = owner_, generation = generation_, state = std::move(state)]() mutable {
            if (auto self = owner.lock(); self && *self)
                (*self)->apply(generation, std::move(state));
        });
    }

    static void stateChanged(pa_context* context, void* data)
    {
        auto* self = static_cast<Connection*>(data);
        switch (pa_context_get_state(context)) {
        case PA_CONTEXT_READY: {
            auto mask = static_cast<pa_subscription_mask_t>(PA_SUBSCRIPTION_MASK_SINK | PA_SUBSCRIPTION_MASK_SOURCE
                                                            | PA_SUBSCRIPTION_MASK_SOURCE_OUTPUT | PA_SUBSCRIPTION_MASK_SERVER);
            done(pa_context_subscribe(context, mask, nullptr, nullptr));
            self->refresh();
            break;
        }
        case PA_CONTEXT_FAILED:
        case PA_CONTEXT_TERMINATED:
            self->post(failed());
            break;
        default:
            break;
        }
    }

    static void subscribed(pa_context*, pa_subscription_event_type_t, uint32_t, void* data)
    {
        static_cast<Connection*>(data)->refresh();
    }

    // One reading at a time, in a chain: the server's defaults, outputs, inputs, then who records.
    void refresh()
    {
        if (refreshing_) {
            dirty_ = true;
            return;
        }
        refreshing_ = true;
        dirty_ = false;
        building_ = SoundState {};
        microphones_.clear();
        done(pa_context_get_server_info(context_, &Connection::serverInfo, this));
    }

    static void serverInfo(pa_context* context, const pa_server_info* info, void* data)
    {
        auto* self = static_cast<Connection*>(data);
        self->defaultSink_ = info && info->default_sink_name ? info->default_sink_name : "";
        self->defaultSource_ = info && info->default_source_name ? info->default_source_name : "";
        done(pa_context_get_sink_info_list(context, &Connection::sinkInfo, self));
    }

    static void sinkInfo(pa_context* context, const pa_sink_info* info, int last, void* data)
    {
        auto* self = static_cast<Connection*>(data);
        if (last) {
            done(pa_context_get_source_info_list(context, &Connection::sourceInfo, self));
            return;
        }
        if (!info)
            return;
        std::string description = info->description ? info->description : info->name;
        self->building_.outputs.push_back({ info->name, description });
        if (self->defaultSink_ == info->name) {
            self->building_.output = description;
            self->building_.volume = static_cast<double>(pa_cvolume_avg(&info->volume)) / PA_VOLUME_NORM;
            self->building_.muted = info->mute;
            self->channels_ = std::max<uint8_t>(1, info->volume.channels);
        }
    }

    static void sourceInfo(pa_context* context, const pa_source_info* info, int last, void* data)
    {
        auto* self = static_cast<Connection*>(data);
        if (last) {
            done(pa_context_get_source_output_info_list(context, &Connection::sourceOutputInfo, self));
            return;
        }
        // An output's monitor is not a microphone.
        if (!info || info->monitor_of_sink != PA_INVALID_INDEX)
            return;
        self->microphones_.push_back(info->index);
        if (self->defaultSource_ == info->name) {
            self->building_.microphone = info->description ? info->description : info->name;
            self->building_.microphoneMuted = info->mute;
        }
    }

    static void sourceOutputInfo(pa_context*, const pa_source_output_info* info, int last, void* data)
    {
        auto* self = static_cast<Connection*>(data);
        if (last) {
            self->finish();
            return;
        }
        if (!info || std::find(self->microphones_.begin(), self->microphones_.end(), info->source) == self->microphones_.end())
            return;
        // Level meters (the volume control's own) read peaks, not sound.
        if (info->resample_method && std::strcmp(info->resample_method, "peaks") == 0)
            return;
        const char* application = pa_proplist_gets(info->proplist, PA_PROP_APPLICATION_NAME);
        std::string name = application ? application : info->name ? info->name : "A program";
        if (std::find(self->building_.recording.begin(), self->building_.recording.end(), name) == self->building_.recording.end())
            self->building_.recording.push_back(name);
    }

    void finish()
    {
        refreshing_ = false;
        building_.ready = true;
        post(building_);
        if (dirty_)
            refresh();
    }

    Runtime& runtime_;
    std::weak_ptr<SoundServer*> owner_;
    uint64_t generation_;
    std::string server_;
    pa_threaded_mainloop* loop_ = nullptr;
    pa_context* context_ = nullptr;
    // The loop thread's, under the loop's lock.
    SoundState building_;
    std::vector<uint32_t> microphones_;
    std::string defaultSink_;
    std::string defaultSource_;
    uint8_t channels_ = 2;
    bool refreshing_ = false;
    bool dirty_ = false;
};

SoundServer::SoundServer(Runtime& runtime, std::string server)
    : runtime_(runtime), server_(std::move(server)), self_(std::make_shared<SoundServer*>(this))
{
}

SoundServer::~SoundServer()
{
    *self_ = nullptr;
    connection_.reset();
}

void SoundServer::setWanted(const std::string& holder, bool wanted)
{
    if (!holders_.set(holder, wanted))
        return;
    if (isWanted())
        connect();
    else
        disconnect();
}

void SoundServer::connect()
{
    ++generation_;
    connection_ = std::make_shared<Connection>(runtime_, self_, generation_, server_);
    connection_->start();
}

void SoundServer::disconnect()
{
    ++generation_;
    retry_.cancel();
    connection_.reset();
}

void SoundServer::apply(uint64_t generation, SoundState state)
{
    if (generation != generation_)
        return;
    // A server that is gone (or restarting) is looked for again now and then while wanted.
    if (!state.problem.empty() && !retry_.isArmed())
        retry_ = runtime_.schedule(retryInterval, TimerRepeat::once, Runtime::defaultTolerance(retryInterval), [this] {
            if (isWanted()) {
                disconnect();
                connect();
            }
        });
    if (state == state_)
        return;
    state_ = std::move(state);
    if (onChange)
        onChange();
}

void SoundServer::setVolume(double volume)
{
    if (connection_)
        connection_->setVolume(volume);
}

void SoundServer::setMuted(bool muted)
{
    if (connection_)
        connection_->setMuted(muted);
}

void SoundServer::setOutput(const std::string& name)
{
    if (connection_)
        connection_->setOutput(name);
}

void SoundServer::setMicrophoneMuted(bool muted)
{
    if (connection_)
        connection_->setMicrophoneMuted(muted);
}

} // namespace kestrune
