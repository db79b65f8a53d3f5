# The peer a user might pick instead: a listener process that evaluates a tiny expression for a client
# over a Unix socket, with Python's multiprocessing.connection. Prints "key value" lines.
import os
import sys
import tempfile
import time
from multiprocessing import Process
from multiprocessing.connection import Client, Listener

ROUND_TRIPS = 10000


def serve(address):
    with Listener(address, family="AF_UNIX") as listener:
        with listener.accept() as connection:
            while True:
                expression = connection.recv()
                if expression is None:
                    return
                connection.send(eval(expression))


def main():
    address = os.path.join(tempfile.mkdtemp(), "peer.sock")
    server = Process(target=serve, args=(address,))
    server.start()
    while not os.path.exists(address):
        time.sleep(0.001)
    with Client(address, family="AF_UNIX") as client:
        times = []
        for _ in range(ROUND_TRIPS):
            start = time.perf_counter()
            client.send("1")
            client.recv()
            times.append((time.perf_counter() - start) * 1e6)
        times.sort()
        print("eval_median_us %.1f" % times[len(times) // 2])
        print("eval_p99_us %.1f" % times[len(times) * 99 // 100])
        time.sleep(1)
        start = time.perf_counter()
        client.send("1")
        client.recv()
        print("eval_rested_us %.1f" % ((time.perf_counter() - start) * 1e6))
        client.send(None)
    server.join()


if __name__ == "__main__":
    sys.exit(main())
