-- Grows a string one character at a time, 100,000 times.
local s = ""
for _ = 1, 100000 do
    s = s .. "x"
end
print(#s)
