// A host that is not linked with the library: it loads a file when it runs, and has every thread that it
// starts call what the file exports.
//
//   loads_library FILE [FUNCTION DIRECTORY]
//
// Exit 0: loaded, and FUNCTION returned 0 on each thread. 1: not; the reason is on standard error.
#include <dlfcn.h>
#include <pthread.h>
#include <stdint.h>
#include <stdio.h>

#define THREADS 8

typedef int (*Call)(char const* directory, int thread);

static Call call;
static char const* directory;

static void* CallIt(void* thread) { return (void*)(intptr_t)call(directory, (int)(intptr_t)thread); }

int main(int argc, char** argv) {
  if (argc != 2 && argc != 4) return 2;
  void* const file = dlopen(argv[1], RTLD_NOW);
  if (file == NULL) {
    fprintf(stderr, "%s\n", dlerror());
    return 1;
  }
  if (argc == 2) return 0;
  *(void**)&call = dlsym(file, argv[2]);
  directory = argv[3];
  if (call == NULL) {
    fprintf(stderr, "%s\n", dlerror());
    return 1;
  }
  if (call(directory, -1) != 0) {
    fprintf(stderr, "%s failed\n", argv[2]);
    return 1;
  }
  int failed = 0;
  pthread_t threads[THREADS];
  for (intptr_t i = 0; i < THREADS; ++i) {
    if (pthread_create(&threads[i], NULL, CallIt, (void*)i) != 0) return 1;
  }
  for (int i = 0; i < THREADS; ++i) {
    void* result = NULL;
    pthread_join(threads[i], &result);
    if (result != NULL) failed = 1;
  }
  if (failed != 0) fprintf(stderr, "%s failed on a thread\n", argv[2]);
  return failed != 0 || call(directory, -2) != 0;
}
