#include "mpiwrapper/driver/NativeHandles.h"

#include <utility>

namespace tolm::mpidriver {

namespace {

// Handles below these are reserved for predefined objects; the datatype and operation ranges
// leave room for predefined objects added later without moving user handles.
constexpr int firstUserComm = 3;
constexpr int firstUserGroup = 2;
constexpr int firstUserRequest = 1;
constexpr int firstUserType = 64;
constexpr int firstUserOp = 32;
constexpr int firstUserWin = 1;
constexpr int firstUserFile = 1;
constexpr int firstUserInfo = 2;

void setPredefinedTypes(HandleTable<MPI_Datatype>& types) {
    const std::pair<int, MPI_Datatype> predefined[] = {
        {QMX_MPI_CHAR, MPI_CHAR},
        {QMX_MPI_SIGNED_CHAR, MPI_SIGNED_CHAR},
        {QMX_MPI_UNSIGNED_CHAR, MPI_UNSIGNED_CHAR},
        {QMX_MPI_BYTE, MPI_BYTE},
        {QMX_MPI_SHORT, MPI_SHORT},
        {QMX_MPI_UNSIGNED_SHORT, MPI_UNSIGNED_SHORT},
        {QMX_MPI_INT, MPI_INT},
        {QMX_MPI_UNSIGNED, MPI_UNSIGNED},
        {QMX_MPI_LONG, MPI_LONG},
        {QMX_MPI_UNSIGNED_LONG, MPI_UNSIGNED_LONG},
        {QMX_MPI_LONG_LONG, MPI_LONG_LONG},
        {QMX_MPI_UNSIGNED_LONG_LONG, MPI_UNSIGNED_LONG_LONG},
        {QMX_MPI_FLOAT, MPI_FLOAT},
        {QMX_MPI_DOUBLE, MPI_DOUBLE},
        {QMX_MPI_LONG_DOUBLE, MPI_LONG_DOUBLE},
        {QMX_MPI_C_BOOL, MPI_C_BOOL},
        {QMX_MPI_INT8_T, MPI_INT8_T},
        {QMX_MPI_INT16_T, MPI_INT16_T},
        {QMX_MPI_INT32_T, MPI_INT32_T},
        {QMX_MPI_INT64_T, MPI_INT64_T},
        {QMX_MPI_UINT8_T, MPI_UINT8_T},
        {QMX_MPI_UINT16_T, MPI_UINT16_T},
        {QMX_MPI_UINT32_T, MPI_UINT32_T},
        {QMX_MPI_UINT64_T, MPI_UINT64_T},
        {QMX_MPI_WCHAR, MPI_WCHAR},
        {QMX_MPI_FLOAT_INT, MPI_FLOAT_INT},
        {QMX_MPI_DOUBLE_INT, MPI_DOUBLE_INT},
        {QMX_MPI_LONG_INT, MPI_LONG_INT},
        {QMX_MPI_2INT, MPI_2INT},
        {QMX_MPI_SHORT_INT, MPI_SHORT_INT},
        {QMX_MPI_LONG_DOUBLE_INT, MPI_LONG_DOUBLE_INT},
        {QMX_MPI_AINT, MPI_AINT},
        {QMX_MPI_OFFSET, MPI_OFFSET},
        {QMX_MPI_COUNT, MPI_COUNT},
        {QMX_MPI_PACKED, MPI_PACKED},
    };
    for (const auto& [handle, native] : predefined) {
        types.setPredefined(handle, native);
    }
}

void setPredefinedOps(HandleTable<OpEntry>& ops) {
    const std::pair<int, MPI_Op> predefined[] = {
        {QMX_MPI_MAX, MPI_MAX},         {QMX_MPI_MIN, MPI_MIN},       {QMX_MPI_SUM, MPI_SUM},
        {QMX_MPI_PROD, MPI_PROD},       {QMX_MPI_LAND, MPI_LAND},     {QMX_MPI_BAND, MPI_BAND},
        {QMX_MPI_LOR, MPI_LOR},         {QMX_MPI_BOR, MPI_BOR},       {QMX_MPI_LXOR, MPI_LXOR},
        {QMX_MPI_BXOR, MPI_BXOR},       {QMX_MPI_MINLOC, MPI_MINLOC}, {QMX_MPI_MAXLOC, MPI_MAXLOC},
        {QMX_MPI_REPLACE, MPI_REPLACE}, {QMX_MPI_NO_OP, MPI_NO_OP},
    };
    for (const auto& [handle, native] : predefined) {
        ops.setPredefined(handle, OpEntry{native, nullptr});
    }
}

}  // namespace

NativeHandles::NativeHandles()
    : comms(MPI_COMM_NULL, firstUserComm, QMX_MPI_ERR_COMM),
      groups(MPI_GROUP_NULL, firstUserGroup, QMX_MPI_ERR_GROUP),
      requests(MPI_REQUEST_NULL, firstUserRequest, QMX_MPI_ERR_REQUEST),
      types(MPI_DATATYPE_NULL, firstUserType, QMX_MPI_ERR_TYPE),
      ops(OpEntry{MPI_OP_NULL, nullptr}, firstUserOp, QMX_MPI_ERR_OP),
      wins(MPI_WIN_NULL, firstUserWin, QMX_MPI_ERR_WIN),
      files(MPI_FILE_NULL, firstUserFile, QMX_MPI_ERR_FILE),
      infos(MPI_INFO_NULL, firstUserInfo, QMX_MPI_ERR_INFO) {
    comms.setPredefined(QMX_MPI_COMM_WORLD, MPI_COMM_WORLD);
    comms.setPredefined(QMX_MPI_COMM_SELF, MPI_COMM_SELF);
    groups.setPredefined(QMX_MPI_GROUP_EMPTY, MPI_GROUP_EMPTY);
    infos.setPredefined(QMX_MPI_INFO_ENV, MPI_INFO_ENV);
    setPredefinedTypes(types);
    setPredefinedOps(ops);
}

NativeHandles handles;

}  // namespace tolm::mpidriver
