#include <fcntl.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include "integrity/tarn.h"

// Found by name, as the platform's services find it.
void RunOEMFuncForProvisionOat(int apkFd, int oatFd, int vdexFd);

// usage: tarn_client provision APK OAT VDEX
//        tarn_client label FILE: signs with a label that does not fit, verifies, edits, verifies
int main(int argc, char** argv) {
  if (argc == 5 && strcmp(argv[1], "provision") == 0) {
    RunOEMFuncForProvisionOat(open(argv[2], O_RDONLY), open(argv[3], O_RDWR),
                              open(argv[4], O_RDWR));
    return 0;
  }
  if (argc != 3 || strcmp(argv[1], "label") != 0) return 2;

  const int fd = open(argv[2], O_RDWR);
  uint8_t hash[20] = {0};
  TarnExLabel* label = NULL;
  if (TarnExLabelAlloc(TARN_SHA1, hash, sizeof(hash), NULL, 0, &label) != TARN_OK) return 1;
  printf("%zu %u %u\n", sizeof(*label), (unsigned)label->marker, (unsigned)label->algorithm);
  printf("sign %x\n", (unsigned)TarnSignFd(fd, label));
  TarnExLabelFree(label);
  printf("verify %x\n", (unsigned)TarnVerifyFd(fd));
  printf("edit %x\n", (unsigned)TarnEditFd(fd));
  printf("verify %x\n", (unsigned)TarnVerifyFdSync(fd));
  printf("close %x\n", (unsigned)TarnCloseFd(fd));
  return 0;
}
