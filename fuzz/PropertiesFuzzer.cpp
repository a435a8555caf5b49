// Properties read from arbitrary text: malformed text is an Error, never a crash; text that
// reads writes back to text that reads to the same tree.
#include <cstddef>
#include <cstdint>
#include <string_view>

#include "neo/Error.h"
#include "neo/Properties.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string_view text(reinterpret_cast<const char*>(data), size);
    try {
        const tolm::Properties properties(text);
        const tolm::Properties again(properties.toString());
        if (!(again == properties)) __builtin_trap();
    } catch (const tolm::Error&) {
    }
    return 0;
}
