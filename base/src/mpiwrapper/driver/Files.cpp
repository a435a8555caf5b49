// MPI-IO. Every file the driver opens returns its errors as codes.
#include "mpiwrapper/driver/CallGuard.h"
#include "mpiwrapper/driver/DriverFunctions.h"
#include "mpiwrapper/driver/ErrorTranslator.h"
#include "mpiwrapper/driver/NativeHandles.h"
#include "mpiwrapper/driver/ReservedValues.h"
#include "mpiwrapper/driver/StatusTranslation.h"

namespace tolm::mpidriver {

namespace {

auto& files = handles.files;
auto& types = handles.types;

using NativeReadAt = int (*)(MPI_File, MPI_Offset, void*, int, MPI_Datatype, MPI_Status*);
using NativeWriteAt = int (*)(MPI_File, MPI_Offset, const void*, int, MPI_Datatype, MPI_Status*);

int readAt(NativeReadAt mpiRead, int fh, QMX_MPI_Offset offset, void* buf, int count, int datatype,
           QMX_MPI_Status_struct* status) {
    return guarded([&] {
        SingleStatus out(status);
        return out.finish(qmxCode(mpiRead(files.get(fh), static_cast<MPI_Offset>(offset), buf,
                                          count, types.get(datatype), out.native())));
    });
}

int writeAt(NativeWriteAt mpiWrite, int fh, QMX_MPI_Offset offset, const void* buf, int count,
            int datatype, QMX_MPI_Status_struct* status) {
    return guarded([&] {
        SingleStatus out(status);
        return out.finish(qmxCode(mpiWrite(files.get(fh), static_cast<MPI_Offset>(offset), buf,
                                           count, types.get(datatype), out.native())));
    });
}

// For the functions that return one MPI_Offset.
template <class Query>
int queryOffset(QMX_MPI_Offset* result, Query&& query) {
    require(result != nullptr);
    MPI_Offset native = 0;
    const int rc = query(&native);
    *result = static_cast<QMX_MPI_Offset>(native);
    return qmxCode(rc);
}

}  // namespace

int File_open(int comm, const char* filename, int amode, int info, int* fh) {
    return guarded([&] {
        require(filename && fh);
        MPI_File native = MPI_FILE_NULL;
        int rc = MPI_File_open(handles.comms.get(comm), filename, special::fileModeToNative(amode),
                               handles.infos.getOrNull(info), &native);
        if (rc == MPI_SUCCESS) {
            rc = MPI_File_set_errhandler(native, MPI_ERRORS_RETURN);
        }
        *fh = rc == MPI_SUCCESS ? files.add(native) : QMX_MPI_FILE_NULL;
        return qmxCode(rc);
    });
}

int File_close(int* fh) {
    return guarded([&] {
        require(fh != nullptr);
        MPI_File native = files.get(*fh);
        const int rc = MPI_File_close(&native);
        if (rc == MPI_SUCCESS) {
            files.release(*fh);
            *fh = QMX_MPI_FILE_NULL;
        }
        return qmxCode(rc);
    });
}

int File_delete(const char* filename, int info) {
    return guarded([&] {
        require(filename != nullptr);
        return qmxCode(MPI_File_delete(filename, handles.infos.getOrNull(info)));
    });
}

int File_read_at(int fh, QMX_MPI_Offset offset, void* buf, int count, int datatype,
                 QMX_MPI_Status_struct* status) {
    return readAt(&MPI_File_read_at, fh, offset, buf, count, datatype, status);
}

int File_read_at_all(int fh, QMX_MPI_Offset offset, void* buf, int count, int datatype,
                     QMX_MPI_Status_struct* status) {
    return readAt(&MPI_File_read_at_all, fh, offset, buf, count, datatype, status);
}

int File_write_at(int fh, QMX_MPI_Offset offset, const void* buf, int count, int datatype,
                  QMX_MPI_Status_struct* status) {
    return writeAt(&MPI_File_write_at, fh, offset, buf, count, datatype, status);
}

int File_write_at_all(int fh, QMX_MPI_Offset offset, const void* buf, int count, int datatype,
                      QMX_MPI_Status_struct* status) {
    return writeAt(&MPI_File_write_at_all, fh, offset, buf, count, datatype, status);
}

int File_read(int fh, void* buf, int count, int datatype, QMX_MPI_Status_struct* status) {
    return guarded([&] {
        SingleStatus out(status);
        return out.finish(
            qmxCode(MPI_File_read(files.get(fh), buf, count, types.get(datatype), out.native())));
    });
}

int File_write(int fh, const void* buf, int count, int datatype, QMX_MPI_Status_struct* status) {
    return guarded([&] {
        SingleStatus out(status);
        return out.finish(
            qmxCode(MPI_File_write(files.get(fh), buf, count, types.get(datatype), out.native())));
    });
}

int File_seek(int fh, QMX_MPI_Offset offset, int whence) {
    return guarded([&] {
        return qmxCode(MPI_File_seek(files.get(fh), static_cast<MPI_Offset>(offset),
                                     special::whenceToNative(whence)));
    });
}

int File_get_position(int fh, QMX_MPI_Offset* offset) {
    return guarded([&] {
        const MPI_File native = files.get(fh);
        return queryOffset(offset,
                           [&](MPI_Offset* out) { return MPI_File_get_position(native, out); });
    });
}

int File_get_byte_offset(int fh, QMX_MPI_Offset offset, QMX_MPI_Offset* disp) {
    return guarded([&] {
        const MPI_File native = files.get(fh);
        return queryOffset(disp, [&](MPI_Offset* out) {
            return MPI_File_get_byte_offset(native, static_cast<MPI_Offset>(offset), out);
        });
    });
}

int File_get_size(int fh, QMX_MPI_Offset* size) {
    return guarded([&] {
        const MPI_File native = files.get(fh);
        return queryOffset(size, [&](MPI_Offset* out) { return MPI_File_get_size(native, out); });
    });
}

int File_set_size(int fh, QMX_MPI_Offset size) {
    return guarded(
        [&] { return qmxCode(MPI_File_set_size(files.get(fh), static_cast<MPI_Offset>(size))); });
}

int File_sync(int fh) {
    return guarded([&] { return qmxCode(MPI_File_sync(files.get(fh))); });
}

int File_get_info(int fh, int* info) {
    return guarded([&] {
        require(info != nullptr);
        MPI_Info native = MPI_INFO_NULL;
        const int rc = MPI_File_get_info(files.get(fh), &native);
        *info = rc == MPI_SUCCESS ? handles.infos.add(native) : QMX_MPI_INFO_NULL;
        return qmxCode(rc);
    });
}

int File_set_view(int fh, QMX_MPI_Offset disp, int etype, int filetype, const char* datarep,
                  int info) {
    return guarded([&] {
        return qmxCode(MPI_File_set_view(files.get(fh), static_cast<MPI_Offset>(disp),
                                         types.get(etype), types.get(filetype), datarep,
                                         handles.infos.getOrNull(info)));
    });
}

}  // namespace tolm::mpidriver
