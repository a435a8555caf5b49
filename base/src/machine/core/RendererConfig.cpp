#include "machine/core/RendererConfig.h"

namespace tolm {

int RendererConfig::_numRenderThreads = 0;
std::string RendererConfig::_graphics = "auto";

void RendererConfig::setGraphics(const std::string& mode, std::string& error) {
    if (mode == "auto" || mode == "hardware" || mode == "software" || mode == "off") {
        _graphics = mode;
        error.clear();
        return;
    }
    error = "unknown graphics mode \"" + mode + "\" (expected auto, hardware, software or off)";
}

}  // namespace tolm
