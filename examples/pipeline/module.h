// What the modules of a camera have in common. A module knows the store, its camera's frame buffers and how late it may
// be. It does not know the other modules: not which one fills a frame, nor which one sets the values that it gets.
// Each runs on its own thread; its results are read after that thread has ended.

#ifndef PIPELINE_MODULE_H
#define PIPELINE_MODULE_H

#include <cstdint>
#include <string>

#include "frame.h"
#include "store_client.h"
#include "values.h"

namespace pipeline {

struct ModuleContext {
    zarn::Camera camera{0};
    FramePool* pool = nullptr;
    Wait stall{0};                    ///< how late the module is with each frame
    Wait frameWait{DEFAULT_WAIT_MS};  ///< one wait for a frame to begin
    bool realTime = false;            ///< continue with an earlier value if one is late
    ModuleName name = MODULE_COUNT;
    const Staging* staging = nullptr;
};

class Module {
public:
    explicit Module(const ModuleContext& context)
        : mContext(context), mStore(context.camera, context.name, context.staging) {}
    virtual ~Module() = default;
    Module(const Module&) = delete;
    Module& operator=(const Module&) = delete;

    /// The thread's body: works until the sensor announces the end of the stream.
    void run() noexcept;

    const char* name() const { return MODULE_NAMES[mContext.name]; }
    const Traffic& traffic() const { return mStore.traffic(); }
    uint64_t fallbacks() const { return mFallbacks; }  ///< frames that were processed with another frame's value
    const std::string& error() const { return mError; }

protected:
    virtual void process() = 0;

    /// Waits for the frame-ready value of @p frame. If the frame was erased already, because this module is far behind,
    /// the value has a larger frame id.
    FrameReady awaitFrame(uint32_t frame);

    /// Waits for the frame's own value: @p waits times in real time, else for as long as it may still come. Any other
    /// value is counted as a fall-back.
    template <typename Value>
    void awaitValue(const Tag<Value>& tag, uint32_t frame, Value& value, int waits) {
        for (int i = 0; i < (mContext.realTime ? waits : patience()); ++i) {
            if (mStore.await(tag, frame, value) == AnsweredBy::ITSELF) return;
        }
        ++mFallbacks;
    }

    void stall(uint32_t frame) const;

    /// More waits than any module is ever late: a value that has not come by then will not come. With staged faults
    /// fewer, because the fault may keep a value from ever coming.
    int patience() const { return mContext.staging->isEmpty() ? 600 : 3; }

    const ModuleContext mContext;
    StoreClient mStore;
    uint64_t mFallbacks = 0;
    std::string mError;
};

}  // namespace pipeline

#endif  // PIPELINE_MODULE_H
