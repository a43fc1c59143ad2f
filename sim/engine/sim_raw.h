// A private copy of a perix_sim_raw_field for a queued malformed notification. Internal to the
// core library.
#ifndef PERIX_SIM_RAW_H_
#define PERIX_SIM_RAW_H_

#include <cstdint>
#include <cstring>
#include <memory>

#include "perix_sim.h"

namespace perix_sim {

struct RawCopy {
    // Exactly `bytes` long (so a reader that trusts `reported` overruns a heap block that
    // AddressSanitizer watches); null when the field's data was null.
    std::shared_ptr<uint8_t> block;
    uint32_t reported = 0;

    static RawCopy Of(const perix_sim_raw_field& field) {
        RawCopy copy;
        copy.reported = field.reported;
        if (field.data != nullptr) {
            copy.block.reset(new uint8_t[field.bytes], std::default_delete<uint8_t[]>());
            std::memcpy(copy.block.get(), field.data, field.bytes);
        }
        return copy;
    }
    uint8_t* Bytes() const { return block.get(); }
    const char* Text() const { return reinterpret_cast<const char*>(block.get()); }
};

}  // namespace perix_sim

#endif  // PERIX_SIM_RAW_H_
