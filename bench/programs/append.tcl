# Grows a string one character at a time, 100,000 times.
set s ""
for {set i 0} {$i < 100000} {incr i} {
    append s x
}
puts [string length $s]
