/* A library with an unresolved symbol. */
#define EXPORTED __attribute__((visibility("default")))

int kx_contract_nowhere(void);

EXPORTED int kx_contract_incomplete(void);
int kx_contract_incomplete(void) { return kx_contract_nowhere(); }
