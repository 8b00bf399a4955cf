/* Verifies the CMS signature over the CodeDirectory of a plain file with the roots of the endpoint,
 * and hashes the file. Makes only the calls to libcrypto that every check needs, and does not
 * evaluate the results: this is for measurements, not for use. */

#include <fcntl.h>
#include <openssl/cms.h>
#include <openssl/crypto.h>
#include <openssl/evp.h>
#include <openssl/pem.h>
#include <openssl/x509_vfy.h>
#include <stdint.h>
#include <stdio.h>
#include <unistd.h>

enum { kCodeDirectory = 0, kCmsSignature = 0x10000, kHeaderSize = 8 };

static uint32_t big_endian(const unsigned char* bytes) {
  return (uint32_t)bytes[0] << 24 | (uint32_t)bytes[1] << 16 | (uint32_t)bytes[2] << 8 | bytes[3];
}

/* The component of a SuperBlob in `slot`; null when there is none. */
static const unsigned char* find(const unsigned char* blob, uint32_t slot) {
  const uint32_t count = big_endian(blob + 8);
  for (uint32_t index = 0; index < count; ++index) {
    const unsigned char* entry = blob + 12 + 8 * index;
    if (big_endian(entry) == slot) return blob + big_endian(entry + 4);
  }
  return NULL;
}

static X509_STORE* read_anchors(void) {
  X509_STORE* store = X509_STORE_new();
  BIO* file = BIO_new_file("/etc/kxtool/anchors.pem", "r");
  X509* anchor;
  while (file && (anchor = PEM_read_bio_X509(file, NULL, NULL, NULL))) {
    X509_STORE_add_cert(store, anchor);
    X509_free(anchor);
  }
  X509_STORE_set_purpose(store, X509_PURPOSE_ANY);
  X509_STORE_set_flags(store, X509_V_FLAG_IGNORE_CRITICAL); /* Apple's extensions */
  return store;
}

static int is_signed(const unsigned char* signature) {
  const unsigned char* directory = find(signature, kCodeDirectory);
  const unsigned char* wrapped = find(signature, kCmsSignature);
  const unsigned char* position;
  CMS_ContentInfo* message;
  if (!directory || !wrapped) return 0;
  position = wrapped + kHeaderSize;
  message = d2i_CMS_ContentInfo(NULL, &position, (long)big_endian(wrapped + 4) - kHeaderSize);
  return message && CMS_verify(message, NULL, read_anchors(),
                               BIO_new_mem_buf(directory, (int)big_endian(directory + 4)), NULL,
                               CMS_BINARY) == 1;
}

static int can_be_hashed(const char* path) {
  static unsigned char buffer[64 << 10];
  unsigned char hash[EVP_MAX_MD_SIZE];
  EVP_MD_CTX* digest = EVP_MD_CTX_new();
  const int file = open(path, O_RDONLY);
  ssize_t count;
  if (file < 0 || EVP_DigestInit_ex(digest, EVP_sha256(), NULL) != 1) return 0;
  while ((count = read(file, buffer, sizeof buffer)) > 0) {
    EVP_DigestUpdate(digest, buffer, (size_t)count);
  }
  close(file);
  return EVP_DigestFinal_ex(digest, hash, NULL) == 1;
}

int passes_bare_check(const char* path);

int passes_bare_check(const char* path) {
  static unsigned char signature[1 << 20];
  char name[4096];
  int file;
  ssize_t size;
  OPENSSL_init_crypto(OPENSSL_INIT_NO_LOAD_CONFIG | OPENSSL_INIT_NO_LOAD_CRYPTO_STRINGS |
                          OPENSSL_INIT_NO_ADD_ALL_CIPHERS | OPENSSL_INIT_NO_ATEXIT,
                      NULL);
  snprintf(name, sizeof name, "%s.codesignature", path);
  file = open(name, O_RDONLY);
  size = file < 0 ? -1 : read(file, signature, sizeof signature);
  close(file);
  return size > 0 && is_signed(signature) && can_be_hashed(path);
}
