/* A library to load. Reports through a pointer when it is unloaded. */
#define EXPORTED __attribute__((visibility("default")))

static int* unloaded;

EXPORTED int kx_contract_answer(void);
int kx_contract_answer(void) { return 42; }

EXPORTED void kx_contract_tell_unload(int* flag);
void kx_contract_tell_unload(int* flag) { unloaded = flag; }

__attribute__((destructor)) static void Unload(void) {
  if (unloaded) *unloaded = 1;
}
