-- Builds a map of 100,000 keys "k0" to "k99999", then reads every key back and sums the values.
local m = {}
for i = 0, 99999 do
    m["k" .. i] = i
end
local sum = 0
for i = 0, 99999 do
    sum = sum + m["k" .. i]
end
print(sum)
