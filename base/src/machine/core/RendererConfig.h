#pragma once
#include <string>

namespace tolm {

// Settings of the server's renderer given on the command line: the number of render threads
// ("-rrthreads") and the graphics mode ("-rgraphics": "auto", "hardware", "software" or
// "off"). The renderer reads them when it starts.
class RendererConfig {
  public:
    static void setNumRenderThreads(int threads) { _numRenderThreads = threads; }
    static int getNumRenderThreads() { return _numRenderThreads; }
    // Stores `mode`, or leaves the setting and describes the fault in `error`.
    static void setGraphics(const std::string& mode, std::string& error);
    static const std::string& getGraphics() { return _graphics; }

  private:
    static int _numRenderThreads;  // 0: as many as the renderer chooses
    static std::string _graphics;
};

}  // namespace tolm
