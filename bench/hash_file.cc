// kx_hash_file FILE: SHA-256 of a file on one thread with libcrypto, reading a megabyte at a time.

#include <openssl/evp.h>

#include <cstdio>
#include <memory>
#include <vector>

int main(int argc, char** argv) {
  if (argc != 2) return 2;
  const std::unique_ptr<std::FILE, int (*)(std::FILE*)> file(std::fopen(argv[1], "rb"),
                                                             std::fclose);
  const std::unique_ptr<EVP_MD_CTX, void (*)(EVP_MD_CTX*)> digest(EVP_MD_CTX_new(),
                                                                  EVP_MD_CTX_free);
  if (!file || EVP_DigestInit_ex(digest.get(), EVP_sha256(), nullptr) != 1) return 1;
  std::setvbuf(file.get(), nullptr, _IONBF, 0);
  std::vector<unsigned char> chunk(std::size_t{1} << 20);
  while (const std::size_t count = std::fread(chunk.data(), 1, chunk.size(), file.get())) {
    EVP_DigestUpdate(digest.get(), chunk.data(), count);
  }
  unsigned char hash[EVP_MAX_MD_SIZE];
  unsigned size = 0;
  EVP_DigestFinal_ex(digest.get(), hash, &size);
  for (unsigned index = 0; index < size; ++index) std::printf("%02x", hash[index]);
  return 0;
}
