#pragma once

#include <cstddef>
#include <string_view>

namespace target {

// Checks made on the raw bytes of a property list before libplist sees them.
//
// libplist 2.2 walks a parsed tree recursively (when it frees, copies or
// writes it, and while it reads a binary list), so a list nested a few tens
// of thousands deep overflows the stack; it frees the partial tree of a
// failed XML parse the same way. A binary list may also name one container
// from many places, which libplist expands into a copy per reference: forty
// small objects can stand for a trillion nodes. Nothing legitimate comes
// close to either limit below, so a list beyond them is simply refused.

// The most containers (dictionaries and arrays) nested inside one another.
inline constexpr int kPropertyListDepthLimit = 256;

// The most nodes a binary list may expand to, every reference counted.
inline constexpr std::size_t kPropertyListNodeLimit = 2'000'000;

// True when a binary list ("bplist00") is well formed enough to hand to
// libplist: the trailer, offset table and every container reachable from the
// top object lie inside the data, no container holds itself, the nesting
// stays within kPropertyListDepthLimit and the expanded tree within
// kPropertyListNodeLimit. Object types that cannot be sized are refused, and
// so are strings that libplist would cut short when reading or writing them:
// ASCII strings with a NUL or a byte above 0x7F, UTF-16 strings with a NUL or
// a lone surrogate.
bool binaryShapeIsAcceptable(std::string_view bytes);

// True when an XML list cannot open more than kPropertyListDepthLimit
// containers at once, whatever libplist makes of odd markup. The estimate
// errs upwards: every "<dict" or "<array" counts as an opening (inside
// comments and attributes too), except the plain self-closing forms, and only
// a plain closing tag met in element content counts as a closing. An
// ordinary list is measured exactly; a strange one may be refused. Text that
// is not valid UTF-8, or holds a NUL, is refused too (XML allows neither, and
// libplist would cut a string short there).
bool xmlNestingIsAcceptable(std::string_view bytes);

}  // namespace target
