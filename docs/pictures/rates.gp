# Draws rates.dat, which the demo has measured, and the configured rates beside it.
set terminal svg size 760,300 font "Helvetica,11" background "white"
set key outside right top
set xlabel "seconds"
set ylabel "Mbit/s received"
set yrange [0:]
set grid ytics lc rgb "#dde3e8"
stats "rates.dat" index 1 using 1 name "COMMAND" nooutput
stats "rates.dat" index 2 using 1 name "BEFORE" nooutput
stats "rates.dat" index 2 using 2 name "AFTER" nooutput
stats "rates.dat" index 2 using 3 name "OTHER" nooutput
stats "rates.dat" index 0 using 1:2 name "CHANGED" nooutput
set arrow from COMMAND_min, graph 0 to COMMAND_min, graph 1 nohead lc rgb "#c0392b" dt 2
set label "quenby --tariff-update" at COMMAND_min, graph 0.95 right offset -1,0 tc rgb "#c0392b"
set label sprintf("%.1f: the new class's burst", CHANGED_max_y) \
    at CHANGED_pos_max_y, CHANGED_max_y offset 1,0 tc rgb "#2a6fb0"
configured(t) = t < COMMAND_min ? BEFORE_max : AFTER_max
set samples 1000
plot "rates.dat" index 0 using 1:2 title columnhead(2) with lines lw 2 lc rgb "#2a6fb0", \
     "" index 0 using 1:3 title columnhead(3) with lines lw 2 lc rgb "#8a949b", \
     configured(x) title "configured" with lines dt 3 lc rgb "#2a6fb0", \
     OTHER_max title "configured" with lines dt 3 lc rgb "#8a949b"
