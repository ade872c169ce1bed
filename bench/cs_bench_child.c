/* The child program the benchmarks run. It is kept to the C library so that
 * its own start-up cost is as small as a program's can be.
 *
 *   cs_bench_child              writes "ok\n"
 *   cs_bench_child bytes N      writes N bytes of text lines in 64 KiB writes
 *   cs_bench_child file PATH    copies the file PATH to standard output
 *   cs_bench_child none         writes nothing
 */
#include <fcntl.h>
#include <stdlib.h>
#include <string.h>
#include <unistd.h>

static int writeAll(const char* data, size_t length) {
  while (length > 0) {
    ssize_t n = write(1, data, length);
    if (n <= 0) return -1;
    data += n;
    length -= (size_t)n;
  }
  return 0;
}

static int writeBytes(unsigned long long count) {
  static char block[64 * 1024];
  for (size_t i = 0; i < sizeof block; ++i) block[i] = (i % 64 == 63) ? '\n' : (char)('a' + i % 26);
  while (count > 0) {
    size_t n = count < sizeof block ? (size_t)count : sizeof block;
    if (writeAll(block, n) != 0) return 1;
    count -= n;
  }
  return 0;
}

static int copyFile(const char* path) {
  static char block[64 * 1024];
  int fd = open(path, O_RDONLY);
  if (fd < 0) return 2;
  for (;;) {
    ssize_t n = read(fd, block, sizeof block);
    if (n < 0) return 3;
    if (n == 0) break;
    if (writeAll(block, (size_t)n) != 0) return 1;
  }
  close(fd);
  return 0;
}

int main(int argc, char** argv) {
  if (argc >= 3 && strcmp(argv[1], "bytes") == 0) return writeBytes(strtoull(argv[2], NULL, 10));
  if (argc >= 3 && strcmp(argv[1], "file") == 0) return copyFile(argv[2]);
  if (argc >= 2 && strcmp(argv[1], "none") == 0) return 0;
  return writeAll("ok\n", 3) == 0 ? 0 : 1;
}
