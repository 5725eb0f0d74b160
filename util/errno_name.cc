// SPDX-License-Identifier: Apache-2.0

#include "util/errno_name.h"

#include <algorithm>
#include <cerrno>
#include <iterator>

namespace Quill {
namespace {

struct NamedErrno {
  std::string_view name;
  int number;
};

#define QUILL_NAMED(name) \
  { #name, name }
// Second names of a number come last.
constexpr NamedErrno kErrnos[] = {QUILL_NAMED(EPERM),
                                  QUILL_NAMED(ENOENT),
                                  QUILL_NAMED(ESRCH),
                                  QUILL_NAMED(EINTR),
                                  QUILL_NAMED(EIO),
                                  QUILL_NAMED(ENXIO),
                                  QUILL_NAMED(E2BIG),
                                  QUILL_NAMED(ENOEXEC),
                                  QUILL_NAMED(EBADF),
                                  QUILL_NAMED(ECHILD),
                                  QUILL_NAMED(EAGAIN),
                                  QUILL_NAMED(ENOMEM),
                                  QUILL_NAMED(EACCES),
                                  QUILL_NAMED(EFAULT),
                                  QUILL_NAMED(ENOTBLK),
                                  QUILL_NAMED(EBUSY),
                                  QUILL_NAMED(EEXIST),
                                  QUILL_NAMED(EXDEV),
                                  QUILL_NAMED(ENODEV),
                                  QUILL_NAMED(ENOTDIR),
                                  QUILL_NAMED(EISDIR),
                                  QUILL_NAMED(EINVAL),
                                  QUILL_NAMED(ENFILE),
                                  QUILL_NAMED(EMFILE),
                                  QUILL_NAMED(ENOTTY),
                                  QUILL_NAMED(ETXTBSY),
                                  QUILL_NAMED(EFBIG),
                                  QUILL_NAMED(ENOSPC),
                                  QUILL_NAMED(ESPIPE),
                                  QUILL_NAMED(EROFS),
                                  QUILL_NAMED(EMLINK),
                                  QUILL_NAMED(EPIPE),
                                  QUILL_NAMED(EDOM),
                                  QUILL_NAMED(ERANGE),
                                  QUILL_NAMED(EDEADLK),
                                  QUILL_NAMED(ENAMETOOLONG),
                                  QUILL_NAMED(ENOLCK),
                                  QUILL_NAMED(ENOSYS),
                                  QUILL_NAMED(ENOTEMPTY),
                                  QUILL_NAMED(ELOOP),
                                  QUILL_NAMED(ENOMSG),
                                  QUILL_NAMED(EIDRM),
                                  QUILL_NAMED(ECHRNG),
                                  QUILL_NAMED(EL2NSYNC),
                                  QUILL_NAMED(EL3HLT),
                                  QUILL_NAMED(EL3RST),
                                  QUILL_NAMED(ELNRNG),
                                  QUILL_NAMED(EUNATCH),
                                  QUILL_NAMED(ENOCSI),
                                  QUILL_NAMED(EL2HLT),
                                  QUILL_NAMED(EBADE),
                                  QUILL_NAMED(EBADR),
                                  QUILL_NAMED(EXFULL),
                                  QUILL_NAMED(ENOANO),
                                  QUILL_NAMED(EBADRQC),
                                  QUILL_NAMED(EBADSLT),
                                  QUILL_NAMED(EBFONT),
                                  QUILL_NAMED(ENOSTR),
                                  QUILL_NAMED(ENODATA),
                                  QUILL_NAMED(ETIME),
                                  QUILL_NAMED(ENOSR),
                                  QUILL_NAMED(ENONET),
                                  QUILL_NAMED(ENOPKG),
                                  QUILL_NAMED(EREMOTE),
                                  QUILL_NAMED(ENOLINK),
                                  QUILL_NAMED(EADV),
                                  QUILL_NAMED(ESRMNT),
                                  QUILL_NAMED(ECOMM),
                                  QUILL_NAMED(EPROTO),
                                  QUILL_NAMED(EMULTIHOP),
                                  QUILL_NAMED(EDOTDOT),
                                  QUILL_NAMED(EBADMSG),
                                  QUILL_NAMED(EOVERFLOW),
                                  QUILL_NAMED(ENOTUNIQ),
                                  QUILL_NAMED(EBADFD),
                                  QUILL_NAMED(EREMCHG),
                                  QUILL_NAMED(ELIBACC),
                                  QUILL_NAMED(ELIBBAD),
                                  QUILL_NAMED(ELIBSCN),
                                  QUILL_NAMED(ELIBMAX),
                                  QUILL_NAMED(ELIBEXEC),
                                  QUILL_NAMED(EILSEQ),
                                  QUILL_NAMED(ERESTART),
                                  QUILL_NAMED(ESTRPIPE),
                                  QUILL_NAMED(EUSERS),
                                  QUILL_NAMED(ENOTSOCK),
                                  QUILL_NAMED(EDESTADDRREQ),
                                  QUILL_NAMED(EMSGSIZE),
                                  QUILL_NAMED(EPROTOTYPE),
                                  QUILL_NAMED(ENOPROTOOPT),
                                  QUILL_NAMED(EPROTONOSUPPORT),
                                  QUILL_NAMED(ESOCKTNOSUPPORT),
                                  QUILL_NAMED(EOPNOTSUPP),
                                  QUILL_NAMED(EPFNOSUPPORT),
                                  QUILL_NAMED(EAFNOSUPPORT),
                                  QUILL_NAMED(EADDRINUSE),
                                  QUILL_NAMED(EADDRNOTAVAIL),
                                  QUILL_NAMED(ENETDOWN),
                                  QUILL_NAMED(ENETUNREACH),
                                  QUILL_NAMED(ENETRESET),
                                  QUILL_NAMED(ECONNABORTED),
                                  QUILL_NAMED(ECONNRESET),
                                  QUILL_NAMED(ENOBUFS),
                                  QUILL_NAMED(EISCONN),
                                  QUILL_NAMED(ENOTCONN),
                                  QUILL_NAMED(ESHUTDOWN),
                                  QUILL_NAMED(ETOOMANYREFS),
                                  QUILL_NAMED(ETIMEDOUT),
                                  QUILL_NAMED(ECONNREFUSED),
                                  QUILL_NAMED(EHOSTDOWN),
                                  QUILL_NAMED(EHOSTUNREACH),
                                  QUILL_NAMED(EALREADY),
                                  QUILL_NAMED(EINPROGRESS),
                                  QUILL_NAMED(ESTALE),
                                  QUILL_NAMED(EUCLEAN),
                                  QUILL_NAMED(ENOTNAM),
                                  QUILL_NAMED(ENAVAIL),
                                  QUILL_NAMED(EISNAM),
                                  QUILL_NAMED(EREMOTEIO),
                                  QUILL_NAMED(EDQUOT),
                                  QUILL_NAMED(ENOMEDIUM),
                                  QUILL_NAMED(EMEDIUMTYPE),
                                  QUILL_NAMED(ECANCELED),
                                  QUILL_NAMED(ENOKEY),
                                  QUILL_NAMED(EKEYEXPIRED),
                                  QUILL_NAMED(EKEYREVOKED),
                                  QUILL_NAMED(EKEYREJECTED),
                                  QUILL_NAMED(EOWNERDEAD),
                                  QUILL_NAMED(ENOTRECOVERABLE),
                                  QUILL_NAMED(ERFKILL),
                                  QUILL_NAMED(EHWPOISON),
                                  QUILL_NAMED(EWOULDBLOCK),
                                  QUILL_NAMED(EDEADLOCK),
                                  QUILL_NAMED(ENOTSUP)};
#undef QUILL_NAMED

template <typename Matches>
const NamedErrno* FindErrno(Matches matches) {
  const auto* const found = std::find_if(std::begin(kErrnos), std::end(kErrnos), matches);
  return found == std::end(kErrnos) ? nullptr : found;
}

}  // namespace

std::string ErrnoName(int number) {
  const NamedErrno* found = FindErrno([number](const NamedErrno& e) { return e.number == number; });
  return found == nullptr ? std::to_string(number) : std::string(found->name);
}

std::optional<int> ErrnoByName(std::string_view name) {
  const NamedErrno* found = FindErrno([name](const NamedErrno& e) { return e.name == name; });
  return found == nullptr ? std::nullopt : std::optional(found->number);
}

}  // namespace Quill
