#pragma once
#include <string>

namespace tolm {

// A file written under a temporary name in the target's own directory ("<target>.partial") and
// renamed over the target only once it is complete, so that the target is at every moment
// either the old file or the whole new one: a failed or killed write leaves the old file as it
// was. The rename stays within one file system, so it is atomic.
//
// The object only names and moves files: the writer creates and fills temporaryPath() (in a
// parallel job, every process writes it collectively and one process commits or discards).
// An object destroyed without commit() removes the temporary file.
class FileReplacement {
  public:
    explicit FileReplacement(std::string target);
    ~FileReplacement();
    FileReplacement(const FileReplacement&) = delete;
    FileReplacement& operator=(const FileReplacement&) = delete;

    static std::string temporaryPathOf(const std::string& target) { return target + ".partial"; }

    const std::string& target() const { return _target; }
    const std::string& temporaryPath() const { return _temporary; }

    // Puts the temporary file in place of the target: "" on success, otherwise
    // "Cannot replace <target>: <reason>" (the temporary file is then removed).
    std::string commit();
    // Removes the temporary file and leaves the target alone.
    void discard();

  private:
    std::string _target;
    std::string _temporary;
    bool _settled = false;
};

}  // namespace tolm
