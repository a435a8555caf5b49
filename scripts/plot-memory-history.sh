#!/usr/bin/env bash
# Plots a memory history that the server exported ("ExportMemoryHistory", a CSV with the
# header time,virtual,resident,lib,virtualhwm,residenthwm,adjusted_virtual), in MiB over the
# seconds of the recording: above, the job's resident memory and its high-water mark; below,
# its virtual memory, its high-water mark, the same with the shared libraries counted once per
# host, and the libraries. Every figure is the sum over the job's processes (the export holds
# no per-process lines).
#
#   scripts/plot-memory-history.sh HISTORY.csv [PLOT.png|PLOT.svg] [TITLE]
#
# The plot goes next to the history (HISTORY.png) unless named; its format follows the
# extension. Needs gnuplot: on Debian, apt-get install gnuplot-nox.
set -euo pipefail

usage() {
    sed -n '2,12p' "$0" | sed 's/^# \{0,1\}//' >&2
    exit 2
}
[[ $# -ge 1 && $# -le 3 && -r $1 ]] || usage
history=$1
plot=${2:-${history%.csv}.png}
title=${3:-Memory of the job, summed over its processes: $(basename "$history")}
command -v gnuplot >/dev/null || {
    echo "gnuplot is missing: on Debian, apt-get install gnuplot-nox" >&2
    exit 1
}
header=$(head -n 1 "$history")
if [[ $header != "time,virtual,resident,lib,virtualhwm,residenthwm,adjusted_virtual" ]]; then
    echo "$history is not a memory history (its first line is: $header)" >&2
    exit 1
fi
case $plot in
    *.svg) terminal="svg size 960,720 dynamic" ;;
    *.png) terminal="pngcairo size 960,720" ;;
    *) echo "the plot must end in .png or .svg: $plot" >&2; exit 2 ;;
esac
# Two panels over one time axis: resident memory (tens of MiB) would be a flat line under the
# virtual memory (GiB under MPI) on a common scale.
gnuplot -e "terminal='$terminal'" - <<GNUPLOT
set terminal @terminal
set output '$plot'
set datafile separator ','
mib = 1048576.0
set multiplot layout 2,1 title "$title"
set grid
set autoscale xfix
set lmargin 10
set key inside left top opaque
set ylabel 'resident (MiB)'
set format x ''
set yrange [0:*]
plot '$history' skip 1 using 1:(\$3/mib) with lines lw 2 title 'resident', \
     ''         skip 1 using 1:(\$6/mib) with lines lw 2 dt 2 title 'resident high-water mark'
set xlabel 'time since the recording started (s)'
set format x '%g'
set ylabel 'virtual (MiB)'
set key inside left center opaque
plot '$history' skip 1 using 1:(\$2/mib) with lines lw 2 title 'virtual', \
     ''         skip 1 using 1:(\$5/mib) with lines lw 2 dt 2 title 'virtual high-water mark', \
     ''         skip 1 using 1:(\$7/mib) with lines title 'virtual, libraries once per host', \
     ''         skip 1 using 1:(\$4/mib) with lines title 'shared libraries'
unset multiplot
GNUPLOT
echo "$plot"
