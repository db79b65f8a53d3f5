# A plain counting loop: sums 0 to 999,999.
set sum 0
set i 0
while {$i < 1000000} {
    incr sum $i
    incr i
}
puts $sum
