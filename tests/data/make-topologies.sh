#!/bin/sh
# Regenerates the hwloc XML topologies that the topology tests load. The files are committed,
# so the tests need neither lstopo nor this script; run it after changing a description here.
#
# Healthy machines come from hwloc's synthetic descriptions. The damaged ones are copies of a
# small healthy machine with one defect each, for the fallback paths of CpuTopology.
set -eu
cd "$(dirname "$0")"

synthetic() {  # synthetic FILE DESCRIPTION [lstopo options...]
    file=$1
    description=$2
    shift 2
    lstopo --input "$description" "$@" --of xml -f "$file"
}

damage() {  # damage FILE PERL-PROGRAM: a copy of base.xml edited by the program
    perl -0pe "$2" base.xml >"$1"
}

# Healthy machines.
synthetic two-sockets.xml "pack:2 numa:1 core:4 pu:2"
synthetic two-numa-per-socket.xml "pack:2 numa:2 core:2 pu:2"
synthetic two-numa-nodes.xml "numa:2 core:2 pu:2"
synthetic smt-off.xml "pack:2 numa:1 core:4 pu:1"
synthetic many-lpus.xml "pack:2 numa:2 core:26 pu:2"
synthetic hundred-and-one-lpus.xml "pack:1 core:101 pu:1"
synthetic single-core.xml "core:1 pu:1"
synthetic no-cores.xml "pack:2 pu:4"
# Hardware threads numbered as Linux often does: the second thread of core c is c + 4.
synthetic interleaved-smt.xml "pack:2 numa:1 core:2 pu:2(indexes=0,4,1,5,2,6,3,7)"
# Synthetic machines are symmetric; restricting to fewer PUs takes one whole core (PUs 14, 15)
# away from the second socket, or the second hardware thread (PU 3) away from one core.
synthetic asymmetric-cores.xml "pack:2 numa:1 core:4 pu:2" --restrict 0x3fff
synthetic mixed-smt-cores.xml "pack:1 core:2 pu:2" --restrict 0x7

# Valid hwloc views whose NUMA nodes or sockets do not nest as the tables expect.
synthetic numa-pair-per-socket.xml "pack:2 [numa] [numa] core:2 pu:2"
synthetic numa-inside-cores.xml "core:2 group:2 [numa] pu:2"
synthetic sockets-inside-cores.xml "core:2 pack:2 pu:2"

# Damaged copies of an eight-LPU machine: two sockets, a NUMA node each, two-way cores.
synthetic base.xml "pack:2 numa:1 core:2 pu:2"
damage damaged-core-order.xml 's/type="Core" os_index="1"/type="Group"/'
damage damaged-core-mapping.xml 's/type="Core" os_index="3"/type="Group"/'
damage damaged-socket-order.xml 's/type="Package" os_index="0"/type="Group"/'
damage damaged-socket-mapping.xml 's/type="Package" os_index="1"/type="Group"/'
damage damaged-numa-mapping.xml 's{\n\s*<object type="NUMANode" os_index="1".*?</object>}{}s'
damage damaged-no-pus.xml 's{\n\s*<object type="PU"[^\n]*}{}g'
head -c 600 base.xml >damaged-truncated.xml
# Defects that crash hwloc's loader (or have it allocate half a gigabyte) instead of failing it.
damage damaged-pu-without-complete-cpuset.xml \
    's/(type="PU" os_index="3" cpuset="\w+") complete_cpuset="\w+"/$1/'
damage damaged-root-without-complete-cpuset.xml \
    's/(type="Machine" os_index="0" cpuset="\w+") complete_cpuset="\w+"/$1/'
damage damaged-numa-without-complete-nodeset.xml \
    's/(type="NUMANode" os_index="0"[^>]*?) complete_nodeset="\w+"/$1/'
damage damaged-root-without-complete-nodeset.xml \
    's/(type="Machine"[^>]*?) complete_nodeset="\w+"/$1/'
damage damaged-doctype-without-dtd.xml 's/ SYSTEM "hwloc2.dtd"//'
damage damaged-numa-without-os-index.xml 's/type="NUMANode" os_index="1"/type="NUMANode"/'
damage damaged-pu-with-huge-os-index.xml 's/type="PU" os_index="5"/type="PU" os_index="4000000000"/'
# A machine without children whose complete_cpuset is empty or unreadable.
machine='<?xml version="1.0" encoding="UTF-8"?>\n<topology version="2.0">\n  <object type="Machine" os_index="0" cpuset="0x7" complete_cpuset="%s" nodeset="0x1" complete_nodeset="0x1"/>\n</topology>\n'
# shellcheck disable=SC2059
printf "$machine" 0x0 >damaged-cpuset-outside-complete-cpuset.xml
# shellcheck disable=SC2059
printf "$machine" lo >damaged-unreadable-complete-cpuset.xml
# An empty set, which hwloc's set reader reads past its end.
printf '<?xml version="1.0" encoding="UTF-8"?>\n<topology version="2.0">\n  <object type="Machine" allowed_nodeset=""/>\n</topology>\n' \
    >damaged-empty-allowed-nodeset.xml
# The format of hwloc 1 (no version), with a NUMA node without nodeset.
printf '<?xml version="1.0" encoding="UTF-8"?>\n<topology>\n  <object type="Machine" cpuset="0xf" complete_cpuset="0xf">\n    <object type="NUMANode" os_index="0"/>\n  </object>\n</topology>\n' \
    >damaged-hwloc1-numa-without-nodeset.xml
# Bytes that UTF-7 cannot decode have libxml2 call its generic error handler.
printf '<?xml version="1.0" encoding="UTF-7"?>\n<topology>\303\220\377</topology>\n' \
    >damaged-utf7-bytes.xml
rm base.xml
