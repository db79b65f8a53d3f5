set x 1
