-- A plain counting loop: sums 0 to 999,999.
local sum = 0
local i = 0
while i < 1000000 do
    sum = sum + i
    i = i + 1
end
print(sum)
