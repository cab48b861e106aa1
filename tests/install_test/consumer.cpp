// A program on a host that creates the store and controls the host's platform.

#include <paramset.h>
#include <platform/host/host_platform.h>

int main() {
    property_set("persist.vendor.cam.log.tag", "31");
    zarn::ParamSet::createInstance();
    if (zarn::ps_log_tag != 31) return 1;

    uint32_t in = 17;
    uint32_t out = 0;
    registerPsDynamicParam(31, sizeof(in), 0, "value", "uint32_t");
    if (setPsParam(0, 0, 1, 31, &in) != PS_OK || getPsParam(0, 0, 2, 31, &out) != PS_OK) return 2;
    return out == in ? 0 : 3;
}
