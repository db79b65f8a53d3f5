# Builds a map of 100,000 keys "k0" to "k99999", then reads every key back and sums the values.
m = {}
for i in range(100000):
    m["k" + str(i)] = i
total = 0
for i in range(100000):
    total += m["k" + str(i)]
print(total)
