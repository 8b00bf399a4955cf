#ifndef BENCH_BARE_CHECK_H_
#define BENCH_BARE_CHECK_H_

/* Verifies the CMS signature over a plain file's CodeDirectory with the roots of the endpoint, and
 * hashes the file: the calls of libcrypto that no check can do without, and none of the judgements
 * that make it one. Not for more than a measurement. */
int passes_bare_check(const char* path);

#endif /* BENCH_BARE_CHECK_H_ */
