/* The stand-ins for what takes memory; the C++ library's `new` takes it from malloc. They fail as
 * the others do (see faults.c), all under the name malloc. A sanitizer brings its own. */
#include <errno.h>
#include <stddef.h>

#include "fault_list.h"

/* glibc's own names, as looking malloc up would take memory. */
void *__libc_malloc(size_t size);
void *__libc_calloc(size_t count, size_t size);
void *__libc_realloc(void *block, size_t size);

static int Fails(size_t size) {
  const int error = (int)Fault("malloc", (struct Detail){NULL, (long)size});
  if (error != 0) {
    errno = error;
  }
  return error;
}

void *malloc(size_t size) { return Fails(size) != 0 ? NULL : __libc_malloc(size); }

void *calloc(size_t count, size_t size) {
  return Fails(count * size) != 0 ? NULL : __libc_calloc(count, size);
}

void *realloc(void *block, size_t size) {
  return Fails(size) != 0 ? NULL : __libc_realloc(block, size);
}
