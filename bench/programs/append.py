# Grows a string one character at a time, 100,000 times.
s = ""
for _ in range(100000):
    s += "x"
print(len(s))
