// The wrapper's functions as lists, shared by the front library and the drivers: each entry
// is X(return type, name after "QMX_MPI_", parameter list, argument list). From these lists the
// front generates its forwarding functions and the driver tables, and a driver declares its
// implementations, so a function added here must exist everywhere or the build fails.
// Signatures must equal the declarations in qmx_mpi.h (the compiler checks this).
#pragma once

#include "mpiwrapper/qmx_mpi.h"

// Always forwarded to a loaded driver; the front adds work around them (state changes, wrapper
// codes), so it writes their exported functions by hand.
#define QMX_MPI_CUSTOM_FUNCTIONS(X)                                             \
    X(int, Init, (int* argc, char*** argv), (argc, argv))                       \
    X(int, Init_thread, (int* argc, char*** argv, int required, int* provided), \
      (argc, argv, required, provided))                                         \
    X(int, Finalize, (), ())                                                    \
    X(int, Error_string, (int errorcode, char* string, int* resultlen),         \
      (errorcode, string, resultlen))

// Always forwarded to a loaded driver, whatever the state of MPI.
#define QMX_MPI_ANYTIME_FUNCTIONS(X)                                                   \
    X(int, Initialized, (int* flag), (flag))                                           \
    X(int, Finalized, (int* flag), (flag))                                             \
    X(int, Get_version, (int* version, int* subversion), (version, subversion))        \
    X(int, Get_library_version, (char* version, int* resultlen), (version, resultlen)) \
    X(int, Get_mpi_name, (char* name, int* resultlen), (name, resultlen))              \
    X(int, Get_mpi_version, (char* version, int* resultlen), (version, resultlen))

// Forwarded only between QMX_MPI_Init and QMX_MPI_Finalize.
#define QMX_MPI_RUNNING_FUNCTIONS(X)                                                               \
    X(int, Abort, (int comm, int errorcode), (comm, errorcode))                                    \
    X(int, Get_processor_name, (char* name, int* resultlen), (name, resultlen))                    \
    X(double, Wtime, (), ())                                                                       \
    X(double, Wtick, (), ())                                                                       \
    X(int, Set_yield_wait, (int flag), (flag))                                                     \
    X(int, Get_yield_wait, (int* flag), (flag))                                                    \
    X(int, Comm_rank, (int comm, int* rank), (comm, rank))                                         \
    X(int, Comm_size, (int comm, int* size), (comm, size))                                         \
    X(int, Comm_dup, (int comm, int* newcomm), (comm, newcomm))                                    \
    X(int, Comm_split, (int comm, int color, int key, int* newcomm), (comm, color, key, newcomm))  \
    X(int, Comm_split_type, (int comm, int split_type, int key, int info, int* newcomm),           \
      (comm, split_type, key, info, newcomm))                                                      \
    X(int, Comm_create, (int comm, int group, int* newcomm), (comm, group, newcomm))               \
    X(int, Comm_free, (int* comm), (comm))                                                         \
    X(int, Comm_compare, (int comm1, int comm2, int* result), (comm1, comm2, result))              \
    X(int, Comm_group, (int comm, int* group), (comm, group))                                      \
    X(int, Comm_get_attr, (int comm, int keyval, void* attribute_val, int* flag),                  \
      (comm, keyval, attribute_val, flag))                                                         \
    X(int, Group_incl, (int group, int n, const int* ranks, int* newgroup),                        \
      (group, n, ranks, newgroup))                                                                 \
    X(int, Group_excl, (int group, int n, const int* ranks, int* newgroup),                        \
      (group, n, ranks, newgroup))                                                                 \
    X(int, Group_translate_ranks, (int group1, int n, const int* ranks1, int group2, int* ranks2), \
      (group1, n, ranks1, group2, ranks2))                                                         \
    X(int, Group_compare, (int group1, int group2, int* result), (group1, group2, result))         \
    X(int, Group_size, (int group, int* size), (group, size))                                      \
    X(int, Group_rank, (int group, int* rank), (group, rank))                                      \
    X(int, Group_free, (int* group), (group))                                                      \
    X(int, Send, (const void* buf, int count, int datatype, int dest, int tag, int comm),          \
      (buf, count, datatype, dest, tag, comm))                                                     \
    X(int, Ssend, (const void* buf, int count, int datatype, int dest, int tag, int comm),         \
      (buf, count, datatype, dest, tag, comm))                                                     \
    X(int, Isend,                                                                                  \
      (const void* buf, int count, int datatype, int dest, int tag, int comm, int* request),       \
      (buf, count, datatype, dest, tag, comm, request))                                            \
    X(int, Issend,                                                                                 \
      (const void* buf, int count, int datatype, int dest, int tag, int comm, int* request),       \
      (buf, count, datatype, dest, tag, comm, request))                                            \
    X(int, Recv,                                                                                   \
      (void* buf, int count, int datatype, int source, int tag, int comm,                          \
       QMX_MPI_Status_struct* status),                                                             \
      (buf, count, datatype, source, tag, comm, status))                                           \
    X(int, Irecv,                                                                                  \
      (void* buf, int count, int datatype, int source, int tag, int comm, int* request),           \
      (buf, count, datatype, source, tag, comm, request))                                          \
    X(int, Sendrecv,                                                                               \
      (const void* sendbuf, int sendcount, int sendtype, int dest, int sendtag, void* recvbuf,     \
       int recvcount, int recvtype, int source, int recvtag, int comm,                             \
       QMX_MPI_Status_struct* status),                                                             \
      (sendbuf, sendcount, sendtype, dest, sendtag, recvbuf, recvcount, recvtype, source, recvtag, \
       comm, status))                                                                              \
    X(int, Probe, (int source, int tag, int comm, QMX_MPI_Status_struct* status),                  \
      (source, tag, comm, status))                                                                 \
    X(int, Iprobe, (int source, int tag, int comm, int* flag, QMX_MPI_Status_struct* status),      \
      (source, tag, comm, flag, status))                                                           \
    X(int, Get_count, (const QMX_MPI_Status_struct* status, int datatype, int* count),             \
      (status, datatype, count))                                                                   \
    X(int, Test_cancelled, (const QMX_MPI_Status_struct* status, int* flag), (status, flag))       \
    X(int, Send_init,                                                                              \
      (const void* buf, int count, int datatype, int dest, int tag, int comm, int* request),       \
      (buf, count, datatype, dest, tag, comm, request))                                            \
    X(int, Recv_init,                                                                              \
      (void* buf, int count, int datatype, int source, int tag, int comm, int* request),           \
      (buf, count, datatype, source, tag, comm, request))                                          \
    X(int, Start, (int* request), (request))                                                       \
    X(int, Startall, (int count, int* requests), (count, requests))                                \
    X(int, Wait, (int* request, QMX_MPI_Status_struct* status), (request, status))                 \
    X(int, Waitall, (int count, int* requests, QMX_MPI_Status_struct* statuses),                   \
      (count, requests, statuses))                                                                 \
    X(int, Waitany, (int count, int* requests, int* index, QMX_MPI_Status_struct* status),         \
      (count, requests, index, status))                                                            \
    X(int, Test, (int* request, int* flag, QMX_MPI_Status_struct* status),                         \
      (request, flag, status))                                                                     \
    X(int, Testall, (int count, int* requests, int* flag, QMX_MPI_Status_struct* statuses),        \
      (count, requests, flag, statuses))                                                           \
    X(int, Testany,                                                                                \
      (int count, int* requests, int* index, int* flag, QMX_MPI_Status_struct* status),            \
      (count, requests, index, flag, status))                                                      \
    X(int, Cancel, (int* request), (request))                                                      \
    X(int, Request_free, (int* request), (request))                                                \
    X(int, Barrier, (int comm), (comm))                                                            \
    X(int, Ibarrier, (int comm, int* request), (comm, request))                                    \
    X(int, Bcast, (void* buffer, int count, int datatype, int root, int comm),                     \
      (buffer, count, datatype, root, comm))                                                       \
    X(int, Gather,                                                                                 \
      (const void* sendbuf, int sendcount, int sendtype, void* recvbuf, int recvcount,             \
       int recvtype, int root, int comm),                                                          \
      (sendbuf, sendcount, sendtype, recvbuf, recvcount, recvtype, root, comm))                    \
    X(int, Gatherv,                                                                                \
      (const void* sendbuf, int sendcount, int sendtype, void* recvbuf, const int* recvcounts,     \
       const int* displs, int recvtype, int root, int comm),                                       \
      (sendbuf, sendcount, sendtype, recvbuf, recvcounts, displs, recvtype, root, comm))           \
    X(int, Scatter,                                                                                \
      (const void* sendbuf, int sendcount, int sendtype, void* recvbuf, int recvcount,             \
       int recvtype, int root, int comm),                                                          \
      (sendbuf, sendcount, sendtype, recvbuf, recvcount, recvtype, root, comm))                    \
    X(int, Scatterv,                                                                               \
      (const void* sendbuf, const int* sendcounts, const int* displs, int sendtype, void* recvbuf, \
       int recvcount, int recvtype, int root, int comm),                                           \
      (sendbuf, sendcounts, displs, sendtype, recvbuf, recvcount, recvtype, root, comm))           \
    X(int, Allgather,                                                                              \
      (const void* sendbuf, int sendcount, int sendtype, void* recvbuf, int recvcount,             \
       int recvtype, int comm),                                                                    \
      (sendbuf, sendcount, sendtype, recvbuf, recvcount, recvtype, comm))                          \
    X(int, Allgatherv,                                                                             \
      (const void* sendbuf, int sendcount, int sendtype, void* recvbuf, const int* recvcounts,     \
       const int* displs, int recvtype, int comm),                                                 \
      (sendbuf, sendcount, sendtype, recvbuf, recvcounts, displs, recvtype, comm))                 \
    X(int, Alltoall,                                                                               \
      (const void* sendbuf, int sendcount, int sendtype, void* recvbuf, int recvcount,             \
       int recvtype, int comm),                                                                    \
      (sendbuf, sendcount, sendtype, recvbuf, recvcount, recvtype, comm))                          \
    X(int, Alltoallv,                                                                              \
      (const void* sendbuf, const int* sendcounts, const int* sdispls, int sendtype,               \
       void* recvbuf, const int* recvcounts, const int* rdispls, int recvtype, int comm),          \
      (sendbuf, sendcounts, sdispls, sendtype, recvbuf, recvcounts, rdispls, recvtype, comm))      \
    X(int, Reduce,                                                                                 \
      (const void* sendbuf, void* recvbuf, int count, int datatype, int op, int root, int comm),   \
      (sendbuf, recvbuf, count, datatype, op, root, comm))                                         \
    X(int, Allreduce,                                                                              \
      (const void* sendbuf, void* recvbuf, int count, int datatype, int op, int comm),             \
      (sendbuf, recvbuf, count, datatype, op, comm))                                               \
    X(int, Reduce_scatter,                                                                         \
      (const void* sendbuf, void* recvbuf, const int* recvcounts, int datatype, int op, int comm), \
      (sendbuf, recvbuf, recvcounts, datatype, op, comm))                                          \
    X(int, Scan, (const void* sendbuf, void* recvbuf, int count, int datatype, int op, int comm),  \
      (sendbuf, recvbuf, count, datatype, op, comm))                                               \
    X(int, Exscan,                                                                                 \
      (const void* sendbuf, void* recvbuf, int count, int datatype, int op, int comm),             \
      (sendbuf, recvbuf, count, datatype, op, comm))                                               \
    X(int, Op_create, (QMX_MPI_User_function * function, int commute, int* op),                    \
      (function, commute, op))                                                                     \
    X(int, Op_free, (int* op), (op))                                                               \
    X(int, Type_contiguous, (int count, int oldtype, int* newtype), (count, oldtype, newtype))     \
    X(int, Type_create_struct,                                                                     \
      (int count, const int* blocklengths, const QMX_MPI_Aint* displacements, const int* types,    \
       int* newtype),                                                                              \
      (count, blocklengths, displacements, types, newtype))                                        \
    X(int, Type_create_resized, (int oldtype, QMX_MPI_Aint lb, QMX_MPI_Aint extent, int* newtype), \
      (oldtype, lb, extent, newtype))                                                              \
    X(int, Type_get_extent, (int datatype, QMX_MPI_Aint* lb, QMX_MPI_Aint* extent),                \
      (datatype, lb, extent))                                                                      \
    X(int, Type_size, (int datatype, int* size), (datatype, size))                                 \
    X(int, Type_commit, (int* datatype), (datatype))                                               \
    X(int, Type_free, (int* datatype), (datatype))                                                 \
    X(int, Win_allocate_shared,                                                                    \
      (QMX_MPI_Aint size, int disp_unit, int info, int comm, void* baseptr, int* win),             \
      (size, disp_unit, info, comm, baseptr, win))                                                 \
    X(int, Win_shared_query,                                                                       \
      (int win, int rank, QMX_MPI_Aint* size, int* disp_unit, void* baseptr),                      \
      (win, rank, size, disp_unit, baseptr))                                                       \
    X(int, Win_fence, (int assertion, int win), (assertion, win))                                  \
    X(int, Win_lock, (int lock_type, int rank, int assertion, int win),                            \
      (lock_type, rank, assertion, win))                                                           \
    X(int, Win_unlock, (int rank, int win), (rank, win))                                           \
    X(int, Win_lock_all, (int assertion, int win), (assertion, win))                               \
    X(int, Win_unlock_all, (int win), (win))                                                       \
    X(int, Win_sync, (int win), (win))                                                             \
    X(int, Win_free, (int* win), (win))                                                            \
    X(int, Info_create, (int* info), (info))                                                       \
    X(int, Info_set, (int info, const char* key, const char* value), (info, key, value))           \
    X(int, Info_get, (int info, const char* key, int valuelen, char* value, int* flag),            \
      (info, key, valuelen, value, flag))                                                          \
    X(int, Info_get_nkeys, (int info, int* nkeys), (info, nkeys))                                  \
    X(int, Info_get_nthkey, (int info, int n, char* key), (info, n, key))                          \
    X(int, Info_delete, (int info, const char* key), (info, key))                                  \
    X(int, Info_free, (int* info), (info))

// The MPI-IO functions, loaded separately by QMX_MPIO_Initialize; forwarded only while MPI runs.
#define QMX_MPIO_FUNCTIONS(X)                                                                      \
    X(int, File_open, (int comm, const char* filename, int amode, int info, int* fh),              \
      (comm, filename, amode, info, fh))                                                           \
    X(int, File_close, (int* fh), (fh))                                                            \
    X(int, File_delete, (const char* filename, int info), (filename, info))                        \
    X(int, File_read_at,                                                                           \
      (int fh, QMX_MPI_Offset offset, void* buf, int count, int datatype,                          \
       QMX_MPI_Status_struct* status),                                                             \
      (fh, offset, buf, count, datatype, status))                                                  \
    X(int, File_write_at,                                                                          \
      (int fh, QMX_MPI_Offset offset, const void* buf, int count, int datatype,                    \
       QMX_MPI_Status_struct* status),                                                             \
      (fh, offset, buf, count, datatype, status))                                                  \
    X(int, File_read_at_all,                                                                       \
      (int fh, QMX_MPI_Offset offset, void* buf, int count, int datatype,                          \
       QMX_MPI_Status_struct* status),                                                             \
      (fh, offset, buf, count, datatype, status))                                                  \
    X(int, File_write_at_all,                                                                      \
      (int fh, QMX_MPI_Offset offset, const void* buf, int count, int datatype,                    \
       QMX_MPI_Status_struct* status),                                                             \
      (fh, offset, buf, count, datatype, status))                                                  \
    X(int, File_read, (int fh, void* buf, int count, int datatype, QMX_MPI_Status_struct* status), \
      (fh, buf, count, datatype, status))                                                          \
    X(int, File_write,                                                                             \
      (int fh, const void* buf, int count, int datatype, QMX_MPI_Status_struct* status),           \
      (fh, buf, count, datatype, status))                                                          \
    X(int, File_seek, (int fh, QMX_MPI_Offset offset, int whence), (fh, offset, whence))           \
    X(int, File_get_position, (int fh, QMX_MPI_Offset* offset), (fh, offset))                      \
    X(int, File_get_byte_offset, (int fh, QMX_MPI_Offset offset, QMX_MPI_Offset* disp),            \
      (fh, offset, disp))                                                                          \
    X(int, File_get_size, (int fh, QMX_MPI_Offset* size), (fh, size))                              \
    X(int, File_set_size, (int fh, QMX_MPI_Offset size), (fh, size))                               \
    X(int, File_sync, (int fh), (fh))                                                              \
    X(int, File_get_info, (int fh, int* info), (fh, info))                                         \
    X(int, File_set_view,                                                                          \
      (int fh, QMX_MPI_Offset disp, int etype, int filetype, const char* datarep, int info),       \
      (fh, disp, etype, filetype, datarep, info))
