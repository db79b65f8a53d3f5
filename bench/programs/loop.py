# A plain counting loop: sums 0 to 999,999.
total = 0
i = 0
while i < 1000000:
    total += i
    i += 1
print(total)
