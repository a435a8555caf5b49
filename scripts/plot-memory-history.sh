#!/usr/bin/env bash
# Plots a memory history that the server exported ("ExportMemoryHistory", a CSV with the
# header time,virtual,resident,lib,virtualhwm,residenthwm,adjusted_virtual): the job's
# resident memory and its high-water mark, and its virtual memory with the shared libraries
# counted once per host, in MiB over the seconds of the recording.
#
#   scripts/plot-memory-history.sh HISTORY.csv [PLOT.png|PLOT.svg] [TITLE]
#
# The plot goes next to the history (HISTORY.png) unless named; its format follows the
# extension. Needs gnuplot: on Debian, apt-get install gnuplot-nox.
set -euo pipefail

usage() {
    sed -n '2,11p' "$0" | sed 's/^# \{0,1\}//' >&2
    exit 2
}
[[ $# -ge 1 && $# -le 3 && -r $1 ]] || usage
history=$1
plot=${2:-${history%.csv}.png}
title=${3:-Memory of the job: $(basename "$history")}
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
    *.svg) terminal="svg size 960,540 dynamic" ;;
    *.png) terminal="pngcairo size 960,540" ;;
    *) echo "the plot must end in .png or .svg: $plot" >&2; exit 2 ;;
esac
gnuplot -e "terminal='$terminal'" - <<GNUPLOT
set terminal @terminal
set output '$plot'
set datafile separator ','
set key bottom right
set grid
set title "$title"
set xlabel 'time of the recording (s)'
set ylabel 'memory (MiB)'
mib = 1048576.0
plot '$history' every ::1 using 1:(\$3/mib) with lines lw 2 title 'resident', \
     ''          every ::1 using 1:(\$6/mib) with lines dt 2 title 'resident high-water mark', \
     ''          every ::1 using 1:(\$7/mib) with lines title 'virtual, libraries once per host'
GNUPLOT
echo "$plot"
