// See flicker_json.h.

#include "flicker_json.h"

#include "json_output.h"

namespace pslog {

namespace {

nlohmann::json linkOf(const Reason& reason, const FlickerText& text) {
    nlohmann::json json = {{"cause", nameOf(reason.cause)},
                           {"tag", jsonOf(reason.key.tag)},
                           {"name", text.tagOf(reason.key)},
                           {"frame", reason.frame}};
    const auto add = [&json](const char* name, int64_t number, bool isKnown) {
        if (isKnown) json[name] = number;
    };
    if (reason.orElse != Cause::NOT_KNOWN) json["or_else"] = nameOf(reason.orElse);
    const std::string thread = text.threadOf(reason.thread);
    if (!thread.empty()) json["whose"] = thread;
    add("late_us", reason.lateUs, reason.lateUs != UNKNOWN);
    add("waited_us", reason.waitUs, reason.waitUs != UNKNOWN);
    add("busy_us", reason.busyUs, reason.busyUs != UNKNOWN);
    add("busy_frame", reason.busyFrame, reason.busyFrame != 0);
    add("retain", reason.retain, reason.retain != UNKNOWN);
    add("line", static_cast<int64_t>(reason.line), reason.line != 0);
    return json;
}

}  // namespace

nlohmann::json jsonOf(const Flicker& flicker, const FlickerText& text) {
    static constexpr const char* ANSWERS[] = {"not known", "itself", "earlier", "frame 0"};
    const std::optional<int64_t> off = flicker.framesOff();
    const bool isAnswered = !flicker.failed && flicker.answer != Answer::NOT_KNOWN;
    nlohmann::json chain = nlohmann::json::array();
    for (const Reason& reason : flicker.chain) chain.push_back(linkOf(reason, text));
    return {{"when", text.whenOf(flicker.timeUs, flicker.line)},
            {"line", flicker.line},
            {"camera", jsonOf(flicker.key.cam)},
            {"pipe", jsonOf(flicker.key.pipe)},
            {"tag", jsonOf(flicker.key.tag)},
            {"name", text.tagOf(flicker.key)},
            {"frame", flicker.frame},
            {"reader", text.threadOf(flicker.thread)},
            {"answer", flicker.failed ? "nothing" : ANSWERS[static_cast<int>(flicker.answer)]},
            {"answered_by", flicker.answeredBy == 0 ? nlohmann::json() : nlohmann::json(flicker.answeredBy)},
            {"frames_off", isAnswered && off ? nlohmann::json(*off) : nlohmann::json()},
            {"time_outs", flicker.timeOuts},
            {"waited_ms", jsonOf(flicker.waitMs)},
            {"cause", nameOf(flicker.root().cause)},
            {"story", text.storyOf(flicker)},
            {"advice", text.adviceFor(flicker)},
            {"chain", std::move(chain)}};
}

}  // namespace pslog
