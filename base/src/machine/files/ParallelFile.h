#pragma once
#include <cstdint>
#include <map>
#include <memory>
#include <string>

#include "machine/comm/CommunicatorBuffers.h"
#include "neo/Subject.h"

namespace tolm {

class Communicator;

// One file opened collectively by the processes of a communicator through MPI-IO. Beyond the
// bare MPI-IO calls it passes striping hints for the PanFS parallel file system at every open
// (other file systems ignore them), splits every transfer too large for one MPI call into
// halves until each piece fits (the communicator's maximum buffer size, and at most
// 2147483647 elements), and summarises the file-system layout of an open file (getInfo).
//
// open, close, the destructor, writeAtAll and readAtAll are collective over the communicator:
// every process calls them in the same order, with counts that split alike. An open file is
// closed when MPI is finalised, so no MPI object outlives MPI. One thread uses one file.
//
// Errors: transfers and queries on a closed file raise InternalError "file not open". The
// wrapper's codes 0x40000006 (no MPI-IO in this MPI) and 0x40000005 (a function the driver
// lacks) raise NonRecoverableError. Any other failure is a code: open() answers false,
// writeAt() returns the first failing piece's code, the other transfers go on regardless;
// getErrorStr() turns a code into MPI's text. Some MPIs report no failure of a write at all
// (Open MPI 4.1 prints a full disk on standard error and returns success): whoever must know
// that data arrived reads it back.
class ParallelFile {
  public:
    using ConstView = ConstBufferBase<unsigned int>;
    using View = BufferBase<unsigned int>;

    ParallelFile();
    // As open(); the file is left closed when that fails.
    ParallelFile(Communicator& comm, const std::wstring& name, int mode);
    virtual ~ParallelFile();
    ParallelFile(const ParallelFile&) = delete;
    ParallelFile& operator=(const ParallelFile&) = delete;

    // `mode`: QMX_MPI_MODE_* bits. True when the file is open; otherwise openError() holds
    // the code the open failed with.
    bool open(Communicator& comm, const std::wstring& name, int mode);
    int openError() const { return _openError; }
    void close();
    bool isOpen() const { return _handle != 0; }
    Communicator& communicator() const;

    std::uint64_t getFileSize() const;
    // Adds the PanFS layout of the file ("layout_type", "stripe_unit", "number_comp" and, for
    // RAID5, "raid5_width", "raid5_depth", "alignment_size"); nothing on other file systems.
    void getInfo(std::map<std::string, std::string>& out) const;

    // The byte offset of this process's individual file pointer.
    std::int64_t tell() const;

    // At the individual file pointer.
    void write(ConstView data);
    void read(View data);
    // At byte `offset`; writeAt returns 0 or the code of the first piece that failed.
    int writeAt(std::int64_t offset, ConstView data);
    void readAt(std::int64_t offset, View data);
    void writeAtAll(std::int64_t offset, ConstView data);
    void readAtAll(std::int64_t offset, View data);

    // MPI's text for `code`; for 13 (unknown error) with a hint that the disk may be full.
    static std::string getErrorStr(int code);
    bool exceedsMaximumBufferSize(const std::uint64_t& bytes) const;

  private:
    friend struct ParallelFileTestAccess;

    template <typename ViewType, typename Transfer>
    int transfer(std::int64_t offset, const ViewType& data, bool stopAtFailure,
                 const Transfer& call) const;

    static int fileOpen(const int& comm, const std::string& name, int mode, int& error);
    static void fileClose(int& handle);
    static std::uint64_t getFileSizeImp(const int& handle);
    static std::int64_t fileTell(const int& handle);
    static int fileWrite(const void* buffer, int count, int datatype, const int& handle);
    static int fileRead(void* buffer, int count, int datatype, const int& handle);
    static int fileWriteAt(std::int64_t offset, const void* buffer, int count, int datatype,
                           const int& handle);
    static int fileReadAt(std::int64_t offset, void* buffer, int count, int datatype,
                          const int& handle);
    static int fileWriteAtAll(std::int64_t offset, const void* buffer, int count, int datatype,
                              const int& handle);
    static int fileReadAtAll(std::int64_t offset, void* buffer, int count, int datatype,
                             const int& handle);
    static void fileGetInfo(const int& handle, std::map<std::string, std::string>& out);
    static void translatePanfsInfo(int& info, std::map<std::string, std::string>& out);
    static int setPanfsHints(int& info);
    static int convertToMpiWrapperMode(int mode) { return mode & 511; }
    // 0 for success; raises for the wrapper's two "not supported" codes; returns any other.
    static int handleError(const int& code);

    Communicator* _communicator = nullptr;
    std::string _name;
    int _handle = 0;
    int _openError = 0;
    // Closes the file when MPI is finalised.
    std::unique_ptr<Observer> _finalization;
};

}  // namespace tolm
