#include "machine/files/ParallelFile.h"

#include <algorithm>
#include <cstdlib>
#include <optional>
#include <type_traits>

#include "machine/comm/Communicator.h"
#include "machine/comm/MessageLimits.h"
#include "machine/comm/MpiCore.h"
#include "machine/files/ParallelFileTransfer.h"
#include "mpiwrapper/qmx_mpi.h"
#include "neo/InternalError.h"
#include "neo/NonRecoverableError.h"
#include "platform/Log.h"
#include "platform/StringHelper.h"

namespace tolm {
namespace {

constexpr int infoValueSize = 1024;

struct Hint {
    const char* key;
    const char* value;
};

// Striping for PanFS: RAID5 over 128 components, 64 KiB stripe unit, concurrent writers.
constexpr Hint panfsHints[] = {
    {"panfs_concurrent_write", "1"},           {"panfs_layout_stripe_unit", "65536"},
    {"panfs_layout_total_num_comps", "128"},   {"panfs_layout_type", "3"},
    {"panfs_layout_parity_stripe_width", "9"}, {"panfs_layout_parity_stripe_depth", "1"},
    {"panfs_layout_visit_policy", "1"},
};

// An info object, freed on every way out of the scope that made it. The code of the free is
// of no use to anyone: the object is gone either way.
class InfoObject {
  public:
    InfoObject() = default;
    ~InfoObject() {
        if (_info != QMX_MPI_INFO_NULL)
            QMX_MPI_Info_free(&_info);
    }
    InfoObject(const InfoObject&) = delete;
    InfoObject& operator=(const InfoObject&) = delete;
    int& handle() { return _info; }

  private:
    int _info = QMX_MPI_INFO_NULL;
};

int decimal(const std::optional<std::string>& text) {
    return text ? std::atoi(text->c_str()) : 0;
}

}  // namespace

ParallelFile::ParallelFile()
    : _finalization(std::make_unique<FunctionObserver<>>([this] { close(); })) {}

ParallelFile::ParallelFile(Communicator& comm, const std::wstring& name, int mode)
    : ParallelFile() {
    open(comm, name, mode);
}

ParallelFile::~ParallelFile() {
    try {
        close();
    } catch (const std::exception& error) {
        OS::Log::warning("Closing the parallel file " + _name + " failed: " + error.what());
    }
}

bool ParallelFile::open(Communicator& comm, const std::wstring& name, int mode) {
    close();
    _communicator = &comm;
    _name = StringHelper::toString(name);
    _handle = fileOpen(comm.handle(), _name, convertToMpiWrapperMode(mode), _openError);
    if (isOpen())
        MpiCore::getOnFinalizationObservable().attach(*_finalization);
    return isOpen();
}

void ParallelFile::close() {
    if (isOpen()) {
        MpiCore::getOnFinalizationObservable().detach(*_finalization);
        fileClose(_handle);
    }
    _communicator = nullptr;
    _name.clear();
}

Communicator& ParallelFile::communicator() const {
    TOLM_ASSERT(_communicator, "The parallel file has no communicator");
    return *_communicator;
}

std::uint64_t ParallelFile::getFileSize() const {
    TOLM_ASSERT(isOpen(), "file not open");
    return getFileSizeImp(_handle);
}

std::int64_t ParallelFile::tell() const {
    TOLM_ASSERT(isOpen(), "file not open");
    return fileTell(_handle);
}

void ParallelFile::getInfo(std::map<std::string, std::string>& out) const {
    TOLM_ASSERT(isOpen(), "file not open");
    fileGetInfo(_handle, out);
}

bool ParallelFile::exceedsMaximumBufferSize(const std::uint64_t& bytes) const {
    return communicator().exceedsMaximumBufferSize(bytes);
}

template <typename ViewType, typename Transfer>
int ParallelFile::transfer(std::int64_t offset, const ViewType& data, bool stopAtFailure,
                           const Transfer& call) const {
    TOLM_ASSERT(isOpen(), "file not open");
    using Byte = std::conditional_t<std::is_same_v<ViewType, ConstView>, const char, char>;
    const auto fits = [&](unsigned int count) {
        return count <= MessageLimits::maxIntCount &&
               !exceedsMaximumBufferSize(std::uint64_t(count) * data.elementSize);
    };
    const auto piece = [&](std::int64_t at, Byte* bytes, unsigned int count) {
        return call(at, bytes, static_cast<int>(count), data.type);
    };
    return detail::transferInHalves(offset, static_cast<Byte*>(data.data), data.size,
                                    data.elementSize, fits, piece, stopAtFailure);
}

void ParallelFile::write(ConstView data) {
    transfer(0, data, false, [this](std::int64_t, const void* piece, int count, int type) {
        return fileWrite(piece, count, type, _handle);
    });
}

void ParallelFile::read(View data) {
    transfer(0, data, false, [this](std::int64_t, void* piece, int count, int type) {
        return fileRead(piece, count, type, _handle);
    });
}

int ParallelFile::writeAt(std::int64_t offset, ConstView data) {
    return transfer(offset, data, true,
                    [this](std::int64_t at, const void* piece, int count, int type) {
                        return fileWriteAt(at, piece, count, type, _handle);
                    });
}

void ParallelFile::readAt(std::int64_t offset, View data) {
    transfer(offset, data, false, [this](std::int64_t at, void* piece, int count, int type) {
        return fileReadAt(at, piece, count, type, _handle);
    });
}

void ParallelFile::writeAtAll(std::int64_t offset, ConstView data) {
    transfer(offset, data, false, [this](std::int64_t at, const void* piece, int count, int type) {
        return fileWriteAtAll(at, piece, count, type, _handle);
    });
}

void ParallelFile::readAtAll(std::int64_t offset, View data) {
    transfer(offset, data, false, [this](std::int64_t at, void* piece, int count, int type) {
        return fileReadAtAll(at, piece, count, type, _handle);
    });
}

std::string ParallelFile::getErrorStr(int code) {
    char text[QMX_MPI_MAX_ERROR_STRING] = {};
    int length = 0;
    handleError(QMX_MPI_Error_string(code, text, &length));
    std::string message(text, std::size_t(std::clamp(length, 0, QMX_MPI_MAX_ERROR_STRING)));
    if (code == QMX_MPI_ERR_UNKNOWN)
        message += ". Possibly out of disk space. ";
    return message;
}

int ParallelFile::fileOpen(const int& comm, const std::string& name, int mode, int& error) {
    InfoObject info;
    error = handleError(QMX_MPI_Info_create(&info.handle()));
    if (error == 0)
        error = setPanfsHints(info.handle());
    int handle = 0;
    if (error == 0)
        error = handleError(QMX_MPI_File_open(comm, name.c_str(), mode, info.handle(), &handle));
    return error == 0 ? handle : 0;
}

void ParallelFile::fileClose(int& handle) {
    handleError(QMX_MPI_File_close(&handle));
    handle = 0;
}

std::uint64_t ParallelFile::getFileSizeImp(const int& handle) {
    QMX_MPI_Offset size = 0;
    handleError(QMX_MPI_File_get_size(handle, &size));
    return std::uint64_t(size);
}

// The pointer counts in units of the file view's elementary type; the byte offset does not.
std::int64_t ParallelFile::fileTell(const int& handle) {
    QMX_MPI_Offset position = 0;
    handleError(QMX_MPI_File_get_position(handle, &position));
    QMX_MPI_Offset bytes = 0;
    handleError(QMX_MPI_File_get_byte_offset(handle, position, &bytes));
    return std::int64_t(bytes);
}

int ParallelFile::fileWrite(const void* buffer, int count, int datatype, const int& handle) {
    return handleError(QMX_MPI_File_write(handle, buffer, count, datatype, QMX_MPI_STATUS_IGNORE));
}

int ParallelFile::fileRead(void* buffer, int count, int datatype, const int& handle) {
    return handleError(QMX_MPI_File_read(handle, buffer, count, datatype, QMX_MPI_STATUS_IGNORE));
}

int ParallelFile::fileWriteAt(std::int64_t offset, const void* buffer, int count, int datatype,
                              const int& handle) {
    return handleError(
        QMX_MPI_File_write_at(handle, offset, buffer, count, datatype, QMX_MPI_STATUS_IGNORE));
}

int ParallelFile::fileReadAt(std::int64_t offset, void* buffer, int count, int datatype,
                             const int& handle) {
    return handleError(
        QMX_MPI_File_read_at(handle, offset, buffer, count, datatype, QMX_MPI_STATUS_IGNORE));
}

int ParallelFile::fileWriteAtAll(std::int64_t offset, const void* buffer, int count, int datatype,
                                 const int& handle) {
    return handleError(
        QMX_MPI_File_write_at_all(handle, offset, buffer, count, datatype, QMX_MPI_STATUS_IGNORE));
}

int ParallelFile::fileReadAtAll(std::int64_t offset, void* buffer, int count, int datatype,
                                const int& handle) {
    return handleError(
        QMX_MPI_File_read_at_all(handle, offset, buffer, count, datatype, QMX_MPI_STATUS_IGNORE));
}

void ParallelFile::fileGetInfo(const int& handle, std::map<std::string, std::string>& out) {
    InfoObject info;
    if (handleError(QMX_MPI_File_get_info(handle, &info.handle())) == 0)
        translatePanfsInfo(info.handle(), out);
}

void ParallelFile::translatePanfsInfo(int& info, std::map<std::string, std::string>& out) {
    const auto value = [&info](const char* key) -> std::optional<std::string> {
        char text[infoValueSize] = {};
        int found = 0;
        handleError(QMX_MPI_Info_get(info, key, infoValueSize - 1, text, &found));
        return found ? std::optional<std::string>(text) : std::nullopt;
    };
    const auto layoutType = value("panfs_layout_type");
    if (!layoutType)
        return;
    out["stripe_unit"] = value("panfs_layout_stripe_unit").value_or("");
    out["number_comp"] = value("panfs_layout_total_num_comps").value_or("");
    switch (decimal(layoutType)) {
        case 2:
            out["layout_type"] = "RAID0";
            break;
        case 3: {
            out["layout_type"] = "RAID5";
            const int stripeUnit = decimal(out["stripe_unit"]);
            const int width = std::min(decimal(value("panfs_layout_parity_stripe_width")),
                                       decimal(out["number_comp"]));
            out["raid5_width"] = std::to_string(width);
            out["raid5_depth"] = std::to_string(decimal(value("panfs_layout_parity_stripe_depth")));
            // In 32 bits, wrapping rather than overflowing.
            const auto alignment = std::uint32_t(width - 1) * std::uint32_t(stripeUnit);
            out["alignment_size"] = std::to_string(std::int32_t(alignment));
            break;
        }
        case 4:
            out["layout_type"] = "RAID10";
            break;
        default:
            break;
    }
}

int ParallelFile::setPanfsHints(int& info) {
    for (const Hint& hint : panfsHints) {
        const int code = handleError(QMX_MPI_Info_set(info, hint.key, hint.value));
        if (code != 0)
            return code;
    }
    return 0;
}

int ParallelFile::handleError(const int& code) {
    if (code == QMX_MPI_ERR_MPIO_NOT_SUPPORTED)
        throw NonRecoverableError("Parallel IO is not supported with this MPI Distribution");
    if (code == QMX_MPI_ERR_NOT_SUPPORTED)
        throw NonRecoverableError("Error accessing MPI function that is not supported");
    return code;
}

}  // namespace tolm
