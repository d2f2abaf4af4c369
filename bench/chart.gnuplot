# SPDX-License-Identifier: BSD-3-Clause
#
# Draws the ratios to raw sd-bus as bars. bench/report.py first defines the data: $ratios (task, peer,
# ratio; one block for each peer, with its name), tasks, peers, caption, and the tics.
set terminal svg size 960, 480 font "sans-serif,12" background "#ffffff"
set encoding utf8

set title "Cost compared with raw sd-bus (logarithmic; lower is better)\n "
set label caption at graph 0.5, 1.05 center font ",10" noenhanced # names of processors hold @ and _
set key outside top center horizontal maxrows 1 Left reverse samplen 1.5
set bmargin 3.5
set border 3
set tics nomirror
set xtics scale 0
set xrange [-0.5:tasks - 0.5]
set logscale y 2
set yrange [0.5:32]
set ytics ("0.5" 0.5, "1" 1, "2" 2, "4" 4, "8" 8, "16" 16, "32" 32)
set ylabel "ratio to raw sd-bus"
set grid ytics linecolor "#dddddd"
set style fill solid noborder

# Colours that colour-blind readers can tell apart.
array colours[5] = ["#0072b2", "#e69f00", "#009e73", "#8cc5e8", "#cc79a7"]
width = 0.84 / peers
left(task, peer) = task - 0.42 + peer * width
number(peer, ratio) = sprintf(peer == 0 ? "%.2f" : ratio < 9.95 ? "%.1f" : "%.0f", ratio)

# Bars start at 1, the cost of raw sd-bus: a bar that points down is a task that costs less.
plot for [peer = 0:peers - 1] $ratios index peer \
       using (left($1, $2) + width / 2):(1):(left($1, $2)):(left($1, $2) + 0.92 * width):(1):3 \
       with boxxyerror linecolor rgb colours[peer + 1] title columnheader(1), \
     for [peer = 0:peers - 1] $ratios index peer \
       using (left($1, $2) + 0.46 * width):($3 < 1 ? 1 : $3):(number($2, $3)) \
       with labels offset 0, 0.5 font ",9" notitle, \
     1 with lines linecolor "#333333" linewidth 1.5 title "raw sd-bus"
