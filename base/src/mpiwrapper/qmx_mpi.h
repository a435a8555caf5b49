/*
 * qmx_mpi.h: the C interface of the MPI wrapper library TolmMpiWrapper.
 *
 * The QMX_MPI_* functions mirror the MPI functions of the same name one for one, with one
 * difference that makes the interface independent of any MPI implementation: every handle
 * (communicator, group, request, datatype, operation, window, file, info) is an int, and every
 * constant below is the wrapper's own. A driver library, loaded at run time and passed to
 * QMX_MPI_Initialize, translates handles, constants, statuses and error codes to and from the
 * MPI it was built against.
 *
 * Error contract: every function returning int returns QMX_MPI_SUCCESS (0) or an error code.
 * Errors never abort: the driver makes every communicator, window and file return its errors.
 *   - Codes below 128 are error classes (MPI numbering: 13 is the unknown-error class).
 *   - Codes from 128 to 0x3FFFFFFF carry their class in the low 7 bits; the rest refers to the
 *     MPI library's own, more detailed message, which QMX_MPI_Error_string returns.
 *   - Codes from 0x40000000 are the wrapper's own (QMX_MPI_ERR_NO_DRIVER and the following);
 *     each is its own class.
 * QMX_MPI_ERR_IN_STATUS is always returned as the bare class 17, so that callers may compare
 * with it; the per-request codes are then in the statuses' MPI_ERROR fields.
 *
 * Life cycle: QMX_MPI_Initialize(driver handle), QMX_MPIO_Initialize(driver handle),
 * QMX_MPI_Init, ..., QMX_MPI_Finalize. Calls made before a driver is loaded return
 * QMX_MPI_ERR_NO_DRIVER, MPI-IO calls before QMX_MPIO_Initialize return
 * QMX_MPI_ERR_MPIO_NOT_SUPPORTED, calls that need MPI before QMX_MPI_Init return
 * QMX_MPI_ERR_NOT_INITIALIZED and after QMX_MPI_Finalize QMX_MPI_ERR_FINALIZED. Functions that
 * return a double (QMX_MPI_Wtime, QMX_MPI_Wtick) return 0.0 in those states.
 *
 * Threads: the driver's handle tables are not locked, so at most one thread may be inside
 * the wrapper at a time; QMX_MPI_Init_thread never reports more than QMX_MPI_THREAD_SERIALIZED.
 *
 * Environment variables read by the wrapper:
 *   TOLM_MPI_MAX_BUFFER_SIZE  a decimal byte count from 1 to QMX_MPI_DEFAULT_MAX_BUFFER_SIZE
 *       that lowers QMX_MPI_Get_max_buffer_size for the job. Read by QMX_MPI_Initialize, which
 *       fails with QMX_MPI_ERR_BAD_ENVIRONMENT (and changes nothing) on any other value,
 *       including an empty one.
 *   TOLM_MPI_DISABLE_CPU_BIND_COLLISION_TEST  "1" disables the test for processes bound to the
 *       same processing units, "0" or unset keeps it; any other value makes
 *       QMX_MPI_disable_cpu_bind_collision_test fail with QMX_MPI_ERR_BAD_ENVIRONMENT.
 *   TOLM_MPI_YIELD_WAIT  "1" makes every blocking call wait by yielding (see
 *       QMX_MPI_Set_yield_wait) from QMX_MPI_Init on, "0" or unset leaves it to the caller;
 *       read by QMX_MPI_Initialize, which fails with QMX_MPI_ERR_BAD_ENVIRONMENT on any other
 *       value.
 */
#ifndef TOLM_QMX_MPI_H
#define TOLM_QMX_MPI_H

#include <stddef.h>
#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#define QMX_MPI_STATIC_ASSERT(condition, message) static_assert(condition, message)
#else
#define QMX_MPI_STATIC_ASSERT(condition, message) _Static_assert(condition, message)
#endif

/* ---- Scalar types ---------------------------------------------------------------------- */

typedef int64_t QMX_MPI_Aint;
typedef int64_t QMX_MPI_Offset;
typedef int64_t QMX_MPI_Count;

/* A user reduction: datatype points to the wrapper's handle of the reduced datatype. */
typedef void(QMX_MPI_User_function)(void* invec, void* inoutvec, int* len, int* datatype);

/* The status of a completed receive. internal_bytes is the received size in bytes, from which
 * QMX_MPI_Get_count computes counts; internal_cancelled is non-zero for a cancelled request. */
typedef struct QMX_MPI_Status_struct {
    int MPI_SOURCE;
    int MPI_TAG;
    int MPI_ERROR;
    int internal_cancelled;
    int64_t internal_bytes;
} QMX_MPI_Status_struct;

QMX_MPI_STATIC_ASSERT(sizeof(QMX_MPI_Status_struct) == 24, "the status record is 24 bytes");
QMX_MPI_STATIC_ASSERT(offsetof(QMX_MPI_Status_struct, MPI_SOURCE) == 0, "source at byte 0");
QMX_MPI_STATIC_ASSERT(offsetof(QMX_MPI_Status_struct, MPI_TAG) == 4, "tag at byte 4");
QMX_MPI_STATIC_ASSERT(offsetof(QMX_MPI_Status_struct, MPI_ERROR) == 8, "error at byte 8");

#define QMX_MPI_STATUS_IGNORE ((QMX_MPI_Status_struct*)0)
#define QMX_MPI_STATUSES_IGNORE ((QMX_MPI_Status_struct*)0)

/* ---- Return codes and error classes ----------------------------------------------------- */

#define QMX_MPI_SUCCESS 0
#define QMX_MPI_ERR_BUFFER 1
#define QMX_MPI_ERR_COUNT 2
#define QMX_MPI_ERR_TYPE 3
#define QMX_MPI_ERR_TAG 4
#define QMX_MPI_ERR_COMM 5
#define QMX_MPI_ERR_RANK 6
#define QMX_MPI_ERR_ROOT 7
#define QMX_MPI_ERR_GROUP 8
#define QMX_MPI_ERR_OP 9
#define QMX_MPI_ERR_TOPOLOGY 10
#define QMX_MPI_ERR_DIMS 11
#define QMX_MPI_ERR_ARG 12
#define QMX_MPI_ERR_UNKNOWN 13
#define QMX_MPI_ERR_TRUNCATE 14
#define QMX_MPI_ERR_OTHER 15
#define QMX_MPI_ERR_INTERN 16
#define QMX_MPI_ERR_IN_STATUS 17
#define QMX_MPI_ERR_PENDING 18
#define QMX_MPI_ERR_REQUEST 19
#define QMX_MPI_ERR_ACCESS 20
#define QMX_MPI_ERR_AMODE 21
#define QMX_MPI_ERR_BAD_FILE 22
#define QMX_MPI_ERR_CONVERSION 23
#define QMX_MPI_ERR_DUP_DATAREP 24
#define QMX_MPI_ERR_FILE_EXISTS 25
#define QMX_MPI_ERR_FILE_IN_USE 26
#define QMX_MPI_ERR_FILE 27
#define QMX_MPI_ERR_INFO 28
#define QMX_MPI_ERR_INFO_KEY 29
#define QMX_MPI_ERR_INFO_VALUE 30
#define QMX_MPI_ERR_INFO_NOKEY 31
#define QMX_MPI_ERR_IO 32
#define QMX_MPI_ERR_NAME 33
#define QMX_MPI_ERR_NO_MEM 34
#define QMX_MPI_ERR_NOT_SAME 35
#define QMX_MPI_ERR_NO_SPACE 36
#define QMX_MPI_ERR_NO_SUCH_FILE 37
#define QMX_MPI_ERR_PORT 38
#define QMX_MPI_ERR_QUOTA 39
#define QMX_MPI_ERR_READ_ONLY 40
#define QMX_MPI_ERR_SERVICE 41
#define QMX_MPI_ERR_SPAWN 42
#define QMX_MPI_ERR_UNSUPPORTED_DATAREP 43
#define QMX_MPI_ERR_UNSUPPORTED_OPERATION 44
#define QMX_MPI_ERR_WIN 45
#define QMX_MPI_ERR_BASE 46
#define QMX_MPI_ERR_LOCKTYPE 47
#define QMX_MPI_ERR_KEYVAL 48
#define QMX_MPI_ERR_RMA_CONFLICT 49
#define QMX_MPI_ERR_RMA_SYNC 50
#define QMX_MPI_ERR_SIZE 51
#define QMX_MPI_ERR_DISP 52
#define QMX_MPI_ERR_ASSERT 53
#define QMX_MPI_ERR_RMA_RANGE 55
#define QMX_MPI_ERR_RMA_ATTACH 56
#define QMX_MPI_ERR_RMA_SHARED 57
#define QMX_MPI_ERR_RMA_FLAVOR 58

/* The wrapper's own codes. */
#define QMX_MPI_ERR_NO_DRIVER 0x40000001          /* no driver loaded yet */
#define QMX_MPI_ERR_NOT_A_DRIVER 0x40000002       /* the handle is null or no driver */
#define QMX_MPI_ERR_DRIVER_MISMATCH 0x40000003    /* driver built for another interface */
#define QMX_MPI_ERR_BAD_ENVIRONMENT 0x40000004    /* an environment setting is invalid */
#define QMX_MPI_ERR_NOT_SUPPORTED 0x40000005      /* the driver lacks this function */
#define QMX_MPI_ERR_MPIO_NOT_SUPPORTED 0x40000006 /* no MPI-IO driver loaded */
#define QMX_MPI_ERR_NOT_INITIALIZED 0x40000007    /* needs QMX_MPI_Init first */
#define QMX_MPI_ERR_FINALIZED 0x40000008          /* after QMX_MPI_Finalize */
#define QMX_MPI_ERR_ALREADY_INITIALIZED 0x40000009
#define QMX_MPI_ERR_DRIVER_IN_USE 0x4000000A /* another driver already runs MPI */
#define QMX_MPI_ERR_LASTCODE 0x4000000A

/* ---- Handles ----------------------------------------------------------------------------- */

#define QMX_MPI_COMM_NULL 0
#define QMX_MPI_COMM_WORLD 1
#define QMX_MPI_COMM_SELF 2

#define QMX_MPI_GROUP_NULL 0
#define QMX_MPI_GROUP_EMPTY 1

#define QMX_MPI_REQUEST_NULL 0
#define QMX_MPI_WIN_NULL 0
#define QMX_MPI_FILE_NULL 0
#define QMX_MPI_INFO_NULL 0
#define QMX_MPI_INFO_ENV 1

#define QMX_MPI_DATATYPE_NULL 0
#define QMX_MPI_CHAR 1
#define QMX_MPI_SIGNED_CHAR 2
#define QMX_MPI_UNSIGNED_CHAR 3
#define QMX_MPI_BYTE 4
#define QMX_MPI_SHORT 5
#define QMX_MPI_UNSIGNED_SHORT 6
#define QMX_MPI_INT 7
#define QMX_MPI_UNSIGNED 8
#define QMX_MPI_LONG 9
#define QMX_MPI_UNSIGNED_LONG 10
#define QMX_MPI_LONG_LONG 11
#define QMX_MPI_LONG_LONG_INT QMX_MPI_LONG_LONG
#define QMX_MPI_UNSIGNED_LONG_LONG 12
#define QMX_MPI_FLOAT 13
#define QMX_MPI_DOUBLE 14
#define QMX_MPI_LONG_DOUBLE 15
#define QMX_MPI_C_BOOL 16
#define QMX_MPI_INT8_T 17
#define QMX_MPI_INT16_T 18
#define QMX_MPI_INT32_T 19
#define QMX_MPI_INT64_T 20
#define QMX_MPI_UINT8_T 21
#define QMX_MPI_UINT16_T 22
#define QMX_MPI_UINT32_T 23
#define QMX_MPI_UINT64_T 24
#define QMX_MPI_WCHAR 25
#define QMX_MPI_FLOAT_INT 26
#define QMX_MPI_DOUBLE_INT 27
#define QMX_MPI_LONG_INT 28
#define QMX_MPI_2INT 29
#define QMX_MPI_SHORT_INT 30
#define QMX_MPI_LONG_DOUBLE_INT 31
#define QMX_MPI_AINT 32
#define QMX_MPI_OFFSET 33
#define QMX_MPI_COUNT 34
#define QMX_MPI_PACKED 35

#define QMX_MPI_OP_NULL 0
#define QMX_MPI_MAX 1
#define QMX_MPI_MIN 2
#define QMX_MPI_SUM 3
#define QMX_MPI_PROD 4
#define QMX_MPI_LAND 5
#define QMX_MPI_BAND 6
#define QMX_MPI_LOR 7
#define QMX_MPI_BOR 8
#define QMX_MPI_LXOR 9
#define QMX_MPI_BXOR 10
#define QMX_MPI_MINLOC 11
#define QMX_MPI_MAXLOC 12
#define QMX_MPI_REPLACE 13
#define QMX_MPI_NO_OP 14

/* ---- Special values ----------------------------------------------------------------------- */

#define QMX_MPI_ANY_SOURCE (-1)
#define QMX_MPI_PROC_NULL (-2)
#define QMX_MPI_ANY_TAG (-1)
#define QMX_MPI_UNDEFINED (-32766)
#define QMX_MPI_IN_PLACE ((void*)-1)

#define QMX_MPI_COMM_TYPE_SHARED 0

/* Results of QMX_MPI_Comm_compare and QMX_MPI_Group_compare. */
#define QMX_MPI_IDENT 0
#define QMX_MPI_CONGRUENT 1
#define QMX_MPI_SIMILAR 2
#define QMX_MPI_UNEQUAL 3

/* Attribute keys for QMX_MPI_Comm_get_attr (the attribute is an int). */
#define QMX_MPI_TAG_UB 1
#define QMX_MPI_WTIME_IS_GLOBAL 2
#define QMX_MPI_UNIVERSE_SIZE 3
#define QMX_MPI_APPNUM 4

#define QMX_MPI_THREAD_SINGLE 0
#define QMX_MPI_THREAD_FUNNELED 1
#define QMX_MPI_THREAD_SERIALIZED 2
#define QMX_MPI_THREAD_MULTIPLE 3

/* File access modes: all within the low nine bits. */
#define QMX_MPI_MODE_CREATE 1
#define QMX_MPI_MODE_RDONLY 2
#define QMX_MPI_MODE_WRONLY 4
#define QMX_MPI_MODE_RDWR 8
#define QMX_MPI_MODE_DELETE_ON_CLOSE 16
#define QMX_MPI_MODE_UNIQUE_OPEN 32
#define QMX_MPI_MODE_EXCL 64
#define QMX_MPI_MODE_APPEND 128
#define QMX_MPI_MODE_SEQUENTIAL 256

#define QMX_MPI_SEEK_SET 600
#define QMX_MPI_SEEK_CUR 602
#define QMX_MPI_SEEK_END 604

/* Window assertions (bit set) and lock types. */
#define QMX_MPI_MODE_NOCHECK 1024
#define QMX_MPI_MODE_NOSTORE 2048
#define QMX_MPI_MODE_NOPUT 4096
#define QMX_MPI_MODE_NOPRECEDE 8192
#define QMX_MPI_MODE_NOSUCCEED 16384
#define QMX_MPI_LOCK_EXCLUSIVE 234
#define QMX_MPI_LOCK_SHARED 235

/* ---- Limits --------------------------------------------------------------------------- */

/* The interface level the wrapper offers; QMX_MPI_Get_version reports the driver's MPI. */
#define QMX_MPI_VERSION 3
#define QMX_MPI_SUBVERSION 1

#define QMX_MPI_MAX_PROCESSOR_NAME 256
#define QMX_MPI_MAX_ERROR_STRING 1024
#define QMX_MPI_MAX_LIBRARY_VERSION_STRING 8192
#define QMX_MPI_MAX_INFO_KEY 256
#define QMX_MPI_MAX_INFO_VAL 1024
#define QMX_MPI_MAX_MPI_NAME 256

/* 2^31 - 4096: transfers between this and 2 GiB have failed in MPI-IO stacks, and Linux
 * moves at most 0x7ffff000 bytes per write call. */
#define QMX_MPI_DEFAULT_MAX_BUFFER_SIZE 2147479552ULL
#define QMX_MPI_MAX_BUFFER_SIZE_ENV "TOLM_MPI_MAX_BUFFER_SIZE"
#define QMX_MPI_DISABLE_CPU_BIND_COLLISION_TEST_ENV "TOLM_MPI_DISABLE_CPU_BIND_COLLISION_TEST"
#define QMX_MPI_YIELD_WAIT_ENV "TOLM_MPI_YIELD_WAIT"

/* The functions below are the library's interface; everything else in it is hidden. */
#if defined(__GNUC__)
#pragma GCC visibility push(default)
#endif

/* ---- Driver loading and wrapper settings ---------------------------------------------- */

/* Loads the MPI functions of the driver library (a dlopen handle). May be repeated with the
 * same driver (it then re-reads the environment); all or nothing: on failure nothing changes. */
int QMX_MPI_Initialize(void* handle);
/* Loads the MPI-IO functions of the driver library. */
int QMX_MPIO_Initialize(void* handle);
/* The MPI distribution of the driver ("Open MPI", "MPICH") and its version ("4.1.4"). */
int QMX_MPI_Get_mpi_name(char* name, int* resultlen);
int QMX_MPI_Get_mpi_version(char* version, int* resultlen);
/* The largest message in bytes the callers should hand to one MPI call. */
uint64_t QMX_MPI_Get_max_buffer_size(void);
/* *flag = 1 when the test for processes bound to the same processing units is disabled. */
int QMX_MPI_disable_cpu_bind_collision_test(int* flag);
/* With flag 1, every blocking call (sends, receives, probes, waits, collectives) starts its
 * non-blocking form and tests it, yielding the processor between tests and sleeping briefly
 * after a long wait, instead of letting the MPI library spin: for hosts that run more
 * processes than processing units. Flag 0 (the default) calls the blocking forms. Only
 * between QMX_MPI_Init and QMX_MPI_Finalize; set it while no call is in progress. */
int QMX_MPI_Set_yield_wait(int flag);
int QMX_MPI_Get_yield_wait(int* flag);

/* ---- Start and end ------------------------------------------------------------------- */

int QMX_MPI_Init(int* argc, char*** argv);
int QMX_MPI_Init_thread(int* argc, char*** argv, int required, int* provided);
int QMX_MPI_Initialized(int* flag);
int QMX_MPI_Finalized(int* flag);
int QMX_MPI_Finalize(void);
int QMX_MPI_Abort(int comm, int errorcode);
int QMX_MPI_Get_version(int* version, int* subversion);
int QMX_MPI_Get_library_version(char* version, int* resultlen);
int QMX_MPI_Get_processor_name(char* name, int* resultlen);
int QMX_MPI_Error_class(int errorcode, int* errorclass);
int QMX_MPI_Error_string(int errorcode, char* string, int* resultlen);
double QMX_MPI_Wtime(void);
double QMX_MPI_Wtick(void);

/* ---- Communicators and groups --------------------------------------------------------- */

int QMX_MPI_Comm_rank(int comm, int* rank);
int QMX_MPI_Comm_size(int comm, int* size);
int QMX_MPI_Comm_dup(int comm, int* newcomm);
int QMX_MPI_Comm_split(int comm, int color, int key, int* newcomm);
int QMX_MPI_Comm_split_type(int comm, int split_type, int key, int info, int* newcomm);
int QMX_MPI_Comm_create(int comm, int group, int* newcomm);
int QMX_MPI_Comm_free(int* comm);
int QMX_MPI_Comm_compare(int comm1, int comm2, int* result);
int QMX_MPI_Comm_group(int comm, int* group);
int QMX_MPI_Comm_get_attr(int comm, int keyval, void* attribute_val, int* flag);
int QMX_MPI_Group_incl(int group, int n, const int* ranks, int* newgroup);
int QMX_MPI_Group_excl(int group, int n, const int* ranks, int* newgroup);
int QMX_MPI_Group_translate_ranks(int group1, int n, const int* ranks1, int group2, int* ranks2);
int QMX_MPI_Group_compare(int group1, int group2, int* result);
int QMX_MPI_Group_size(int group, int* size);
int QMX_MPI_Group_rank(int group, int* rank);
int QMX_MPI_Group_free(int* group);

/* ---- Point to point ----------------------------------------------------------------- */

int QMX_MPI_Send(const void* buf, int count, int datatype, int dest, int tag, int comm);
int QMX_MPI_Ssend(const void* buf, int count, int datatype, int dest, int tag, int comm);
int QMX_MPI_Isend(const void* buf, int count, int datatype, int dest, int tag, int comm,
                  int* request);
int QMX_MPI_Issend(const void* buf, int count, int datatype, int dest, int tag, int comm,
                   int* request);
int QMX_MPI_Recv(void* buf, int count, int datatype, int source, int tag, int comm,
                 QMX_MPI_Status_struct* status);
int QMX_MPI_Irecv(void* buf, int count, int datatype, int source, int tag, int comm, int* request);
int QMX_MPI_Sendrecv(const void* sendbuf, int sendcount, int sendtype, int dest, int sendtag,
                     void* recvbuf, int recvcount, int recvtype, int source, int recvtag, int comm,
                     QMX_MPI_Status_struct* status);
int QMX_MPI_Probe(int source, int tag, int comm, QMX_MPI_Status_struct* status);
int QMX_MPI_Iprobe(int source, int tag, int comm, int* flag, QMX_MPI_Status_struct* status);
int QMX_MPI_Get_count(const QMX_MPI_Status_struct* status, int datatype, int* count);
int QMX_MPI_Test_cancelled(const QMX_MPI_Status_struct* status, int* flag);

/* ---- Requests: a completed request's handle is released and set to QMX_MPI_REQUEST_NULL;
 *      persistent requests stay valid until QMX_MPI_Request_free. ---------------------------- */

int QMX_MPI_Send_init(const void* buf, int count, int datatype, int dest, int tag, int comm,
                      int* request);
int QMX_MPI_Recv_init(void* buf, int count, int datatype, int source, int tag, int comm,
                      int* request);
int QMX_MPI_Start(int* request);
int QMX_MPI_Startall(int count, int* requests);
int QMX_MPI_Wait(int* request, QMX_MPI_Status_struct* status);
int QMX_MPI_Waitall(int count, int* requests, QMX_MPI_Status_struct* statuses);
int QMX_MPI_Waitany(int count, int* requests, int* index, QMX_MPI_Status_struct* status);
int QMX_MPI_Test(int* request, int* flag, QMX_MPI_Status_struct* status);
int QMX_MPI_Testall(int count, int* requests, int* flag, QMX_MPI_Status_struct* statuses);
int QMX_MPI_Testany(int count, int* requests, int* index, int* flag, QMX_MPI_Status_struct* status);
int QMX_MPI_Cancel(int* request);
int QMX_MPI_Request_free(int* request);

/* ---- Collectives ---------------------------------------------------------------------- */

int QMX_MPI_Barrier(int comm);
int QMX_MPI_Ibarrier(int comm, int* request);
int QMX_MPI_Bcast(void* buffer, int count, int datatype, int root, int comm);
int QMX_MPI_Gather(const void* sendbuf, int sendcount, int sendtype, void* recvbuf, int recvcount,
                   int recvtype, int root, int comm);
int QMX_MPI_Gatherv(const void* sendbuf, int sendcount, int sendtype, void* recvbuf,
                    const int* recvcounts, const int* displs, int recvtype, int root, int comm);
int QMX_MPI_Scatter(const void* sendbuf, int sendcount, int sendtype, void* recvbuf, int recvcount,
                    int recvtype, int root, int comm);
int QMX_MPI_Scatterv(const void* sendbuf, const int* sendcounts, const int* displs, int sendtype,
                     void* recvbuf, int recvcount, int recvtype, int root, int comm);
int QMX_MPI_Allgather(const void* sendbuf, int sendcount, int sendtype, void* recvbuf,
                      int recvcount, int recvtype, int comm);
int QMX_MPI_Allgatherv(const void* sendbuf, int sendcount, int sendtype, void* recvbuf,
                       const int* recvcounts, const int* displs, int recvtype, int comm);
int QMX_MPI_Alltoall(const void* sendbuf, int sendcount, int sendtype, void* recvbuf, int recvcount,
                     int recvtype, int comm);
int QMX_MPI_Alltoallv(const void* sendbuf, const int* sendcounts, const int* sdispls, int sendtype,
                      void* recvbuf, const int* recvcounts, const int* rdispls, int recvtype,
                      int comm);
int QMX_MPI_Reduce(const void* sendbuf, void* recvbuf, int count, int datatype, int op, int root,
                   int comm);
int QMX_MPI_Allreduce(const void* sendbuf, void* recvbuf, int count, int datatype, int op,
                      int comm);
int QMX_MPI_Reduce_scatter(const void* sendbuf, void* recvbuf, const int* recvcounts, int datatype,
                           int op, int comm);
int QMX_MPI_Scan(const void* sendbuf, void* recvbuf, int count, int datatype, int op, int comm);
int QMX_MPI_Exscan(const void* sendbuf, void* recvbuf, int count, int datatype, int op, int comm);
/* User operations run inside the blocking reductions above (there is no non-blocking one). */
int QMX_MPI_Op_create(QMX_MPI_User_function* function, int commute, int* op);
int QMX_MPI_Op_free(int* op);

/* ---- Datatypes ------------------------------------------------------------------------ */

int QMX_MPI_Type_contiguous(int count, int oldtype, int* newtype);
int QMX_MPI_Type_create_struct(int count, const int* blocklengths,
                               const QMX_MPI_Aint* displacements, const int* types, int* newtype);
int QMX_MPI_Type_create_resized(int oldtype, QMX_MPI_Aint lb, QMX_MPI_Aint extent, int* newtype);
int QMX_MPI_Type_get_extent(int datatype, QMX_MPI_Aint* lb, QMX_MPI_Aint* extent);
int QMX_MPI_Type_size(int datatype, int* size);
int QMX_MPI_Type_commit(int* datatype);
int QMX_MPI_Type_free(int* datatype);

/* ---- Shared-memory windows (baseptr points to a void*) -------------------------------- */

int QMX_MPI_Win_allocate_shared(QMX_MPI_Aint size, int disp_unit, int info, int comm, void* baseptr,
                                int* win);
int QMX_MPI_Win_shared_query(int win, int rank, QMX_MPI_Aint* size, int* disp_unit, void* baseptr);
int QMX_MPI_Win_fence(int assertion, int win);
int QMX_MPI_Win_lock(int lock_type, int rank, int assertion, int win);
int QMX_MPI_Win_unlock(int rank, int win);
int QMX_MPI_Win_lock_all(int assertion, int win);
int QMX_MPI_Win_unlock_all(int win);
int QMX_MPI_Win_sync(int win);
int QMX_MPI_Win_free(int* win);

/* ---- Info objects --------------------------------------------------------------------- */

int QMX_MPI_Info_create(int* info);
int QMX_MPI_Info_set(int info, const char* key, const char* value);
int QMX_MPI_Info_get(int info, const char* key, int valuelen, char* value, int* flag);
int QMX_MPI_Info_get_nkeys(int info, int* nkeys);
int QMX_MPI_Info_get_nthkey(int info, int n, char* key);
int QMX_MPI_Info_delete(int info, const char* key);
int QMX_MPI_Info_free(int* info);

/* ---- MPI-IO (loaded by QMX_MPIO_Initialize) ------------------------------------------- */

int QMX_MPI_File_open(int comm, const char* filename, int amode, int info, int* fh);
int QMX_MPI_File_close(int* fh);
int QMX_MPI_File_delete(const char* filename, int info);
int QMX_MPI_File_read_at(int fh, QMX_MPI_Offset offset, void* buf, int count, int datatype,
                         QMX_MPI_Status_struct* status);
int QMX_MPI_File_write_at(int fh, QMX_MPI_Offset offset, const void* buf, int count, int datatype,
                          QMX_MPI_Status_struct* status);
int QMX_MPI_File_read_at_all(int fh, QMX_MPI_Offset offset, void* buf, int count, int datatype,
                             QMX_MPI_Status_struct* status);
int QMX_MPI_File_write_at_all(int fh, QMX_MPI_Offset offset, const void* buf, int count,
                              int datatype, QMX_MPI_Status_struct* status);
int QMX_MPI_File_read(int fh, void* buf, int count, int datatype, QMX_MPI_Status_struct* status);
int QMX_MPI_File_write(int fh, const void* buf, int count, int datatype,
                       QMX_MPI_Status_struct* status);
int QMX_MPI_File_seek(int fh, QMX_MPI_Offset offset, int whence);
int QMX_MPI_File_get_position(int fh, QMX_MPI_Offset* offset);
int QMX_MPI_File_get_byte_offset(int fh, QMX_MPI_Offset offset, QMX_MPI_Offset* disp);
int QMX_MPI_File_get_size(int fh, QMX_MPI_Offset* size);
int QMX_MPI_File_set_size(int fh, QMX_MPI_Offset size);
int QMX_MPI_File_sync(int fh);
int QMX_MPI_File_get_info(int fh, int* info);
int QMX_MPI_File_set_view(int fh, QMX_MPI_Offset disp, int etype, int filetype, const char* datarep,
                          int info);

#if defined(__GNUC__)
#pragma GCC visibility pop
#endif

#ifdef __cplusplus
}
#endif

#endif /* TOLM_QMX_MPI_H */
