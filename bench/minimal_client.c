/* kx_minimal_client [LIBRARY]: asks the SDK for the product's status with the same calls as the
 * tool, but without a signature check, a time limit or a log. Prints the size of the answer.
 * kx_checking_client also makes the bare signature check. Without a library, both programs only
 * start and exit, which measures that cost. */

#define _POSIX_C_SOURCE 200809L

#include <dlfcn.h>
#include <pthread.h>
#include <stdint.h>
#include <stdio.h>
#include <string.h>

#ifdef KX_BARE_CHECK
int passes_bare_check(const char* path); /* bare_check.c */
#endif

struct callbacks {
  uint32_t size;
  void (*on_product_event)(void*, const char*, const char*);
  void (*on_ran)(void*, const char*, int, const char*);
};

static pthread_mutex_t lock = PTHREAD_MUTEX_INITIALIZER;
static pthread_cond_t answered = PTHREAD_COND_INITIALIZER;
static int is_answered;
static size_t answer_size;

static void ignore_event(void* context, const char* name, const char* data) {
  (void)context, (void)name, (void)data;
}

static void take_answer(void* context, const char* batch, int error, const char* result) {
  (void)context, (void)batch, (void)error;
  pthread_mutex_lock(&lock);
  answer_size = result ? strlen(result) : 0;
  is_answered = 1;
  pthread_cond_signal(&answered);
  pthread_mutex_unlock(&lock);
}

int main(int argc, char** argv) {
  static const char request[] = "{\"data\":{\"Product\":[{\"@name\":\"GetStatus\",\"input\":{}}]}}";
  struct callbacks callbacks = {sizeof callbacks, ignore_event, take_answer};
  void* library;
  void** table;
  int (*get_instance)(void**, int);
  void (*release_instance)(void*);
  int (*run)(void*, const char*, const char*);
  int (*register_callbacks)(void*, const struct callbacks*, void*);
  int (*unregister_callbacks)(void*, const struct callbacks*);

  if (argc == 1) return 0;
  if (argc != 2) return 1;
#ifdef KX_BARE_CHECK
  if (!passes_bare_check(argv[1])) return 1;
#endif
  if (!(library = dlopen(argv[1], RTLD_NOW))) return 1;
  *(void**)&get_instance = dlsym(library, "AgentSDK_GetInstance");
  *(void**)&release_instance = dlsym(library, "AgentSDK_ReleaseInstance");
  if (!get_instance || !release_instance || get_instance((void**)&table, 0) != 0) return 1;
  *(void**)&run = table[3];
  *(void**)&register_callbacks = table[4];
  *(void**)&unregister_callbacks = table[5];
  if (register_callbacks(table, &callbacks, &callbacks) != 0) return 1;
  if (run(table, request, "00000000-0000-4000-8000-000000000000") != 0) return 1;
  pthread_mutex_lock(&lock);
  while (!is_answered) pthread_cond_wait(&answered, &lock);
  pthread_mutex_unlock(&lock);
  unregister_callbacks(table, &callbacks);
  release_instance(table);
  dlclose(library);
  printf("%zu", answer_size);
  return 0;
}
