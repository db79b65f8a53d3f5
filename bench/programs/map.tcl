# Builds a map of 100,000 keys "k0" to "k99999", then reads every key back and sums the values.
set m [dict create]
for {set i 0} {$i < 100000} {incr i} {
    dict set m k$i $i
}
set sum 0
for {set i 0} {$i < 100000} {incr i} {
    incr sum [dict get $m k$i]
}
puts $sum
