/* Prints the description of the operations, after a look at how it is cut. */
#include <rast_chain.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

int main(void) {
  const size_t length = rastChainDescribe(NULL, 0);
  char* whole = malloc(length + 2);
  char* part = malloc(length + 2);
  if (whole == NULL || part == NULL) return 1;
  memset(whole, '?', length + 2);
  if (rastChainDescribe(whole, length + 2) != length || strlen(whole) != length ||
      whole[length + 1] != '?') {
    puts("the whole text has another length");
    return 1;
  }
  for (size_t size = 0; size <= length + 1; size += size < 20 || size + 20 > length ? 1 : 997) {
    memset(part, '?', length + 2);
    const size_t kept = size == 0 ? 0 : size - 1 < length ? size - 1 : length;
    if (rastChainDescribe(part, size) != length || memcmp(part, whole, kept) != 0 ||
        (size > 0 && part[kept] != '\0') || part[size > 0 ? kept + 1 : 0] != '?') {
      printf("cut wrongly at %zu bytes\n", size);
      return 1;
    }
  }
  puts(whole);
  free(whole);
  free(part);
  return 0;
}
