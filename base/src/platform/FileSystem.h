#pragma once
#include <cstdint>
#include <string>

namespace tolm {

// Paths and files of the local file system. Paths are narrow UTF-8 strings.
class FileSystem {
  public:
    static constexpr char separator = '/';

    // `path` made absolute against the working directory and lexically normalised; the file
    // need not exist.
    std::wstring getFilePath(const std::wstring& path) const;
    std::wstring nullDevicePath() const { return L"/dev/null"; }

    // Full path of the running executable, resolved through /proc/self/exe.
    std::string executablePath() const;
    // $TMPDIR when set and non-empty, else "/tmp"; never with a trailing separator.
    std::string temporaryDirectory() const;

    bool exists(const std::string& path) const;
    bool isDirectory(const std::string& path) const;
    // Size in bytes; -1 when the file cannot be examined.
    std::int64_t fileSize(const std::string& path) const;
    // Creates the directory and its parents; false (with errno set) when that fails.
    bool createDirectories(const std::string& path) const;
    bool removeFile(const std::string& path) const;
    // Reads the whole file; false when it cannot be opened or read.
    bool readFile(const std::string& path, std::string& contents) const;
};

}  // namespace tolm
