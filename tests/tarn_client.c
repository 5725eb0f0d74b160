// SPDX-License-Identifier: Apache-2.0

#include <fcntl.h>
#include <stdio.h>
#include <stdlib.h>

#include <quillon/entry_points.h>
#include <quillon/tarn.h>
#include <quillon/base64.h>

// usage: tarn_client [ALGORITHM [EXTRA]] FILE
// Signs the file with a label that does not fit, verifies, edits, verifies. The number of an algorithm
// replaces that in the label, which has so many bytes of extra data.
int main(int argc, char** argv) {
  const int fd = open(argv[argc - 1], O_RDONLY);
  uint8_t hash[20] = {0};
  static uint8_t extra[UINT16_MAX];
  const uint16_t extraLength = argc > 3 ? (uint16_t)strtoul(argv[2], NULL, 10) : 0;
  TarnExLabel* label = NULL;
  if (TarnExLabelAlloc(TARN_SHA1, hash, sizeof(hash), extra, extraLength, &label) != TARN_OK) return 1;
  printf("%zu %u %u\n", sizeof(*label), (unsigned)label->marker, (unsigned)label->algorithm);
  char text[29];
  if (base64encode(label->hash, sizeof(hash), text, base64encode_len(sizeof(hash))) != 0) return 1;
  printf("%s\n", text);
  if (argc > 2) label->algorithm = (uint8_t)strtoul(argv[1], NULL, 10);
  printf("sign %x\n", (unsigned)TarnSignFd(fd, label));
  TarnExLabelFree(label);
  printf("verify %x\n", (unsigned)TarnVerifyFd(fd));
  printf("edit %x\n", (unsigned)TarnEditFd(fd));
  printf("verify %x\n", (unsigned)TarnVerifyFdSync(fd));
  printf("close %x\n", (unsigned)TarnCloseFd(fd));
  return 0;
}
