# Draws rates.dat, which the demo has measured.
set terminal svg size 760,300 font "Helvetica,11" background "white"
set key outside right top
set xlabel "seconds"
set ylabel "Mbit/s received"
set yrange [0:]
set grid ytics lc rgb "#dde3e8"
set samples 400
stats "rates.dat" index 1 using 1 name "BEGIN" nooutput
stats "rates.dat" index 1 using 2 name "END" nooutput
stats "rates.dat" index 2 using 1 name "BEFORE" nooutput
stats "rates.dat" index 2 using 2 name "AFTER" nooutput
stats "rates.dat" index 2 using 3 name "OTHER" nooutput
changed(x) = x < BEGIN_min ? BEFORE_min : (x > END_min ? AFTER_min : NaN)
set arrow from BEGIN_min, graph 0 to BEGIN_min, graph 1 nohead lc rgb "#c0392b" dt 2
set arrow from END_min, graph 0 to END_min, graph 1 nohead lc rgb "#c0392b" dt 2
set label "quenby --tariff-update" at BEGIN_min, graph 0.95 right offset -1,0 tc rgb "#c0392b"
plot "rates.dat" index 0 using 1:2 title columnhead(2) with lines lw 2 lc rgb "#2a6fb0", \
     "" index 0 using 1:3 title columnhead(3) with lines lw 2 lc rgb "#8a949b", \
     changed(x) title "configured" with lines dt 3 lc rgb "#2a6fb0", \
     OTHER_min title "configured" with lines dt 3 lc rgb "#8a949b"
