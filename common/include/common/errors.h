// Every failure of the databases is an exception of this tree. None of them derives from the standard
// library's exception class; callers catch by the types below.

#pragma once

#include <string>

namespace error {

// The abstract root. The full text of an error is its message followed directly by its context.
class Exception {
 public:
  virtual ~Exception() = default;

  // The error's own description.
  virtual std::string message() const = 0;

  // What is printed.
  std::string full_text() const { return message() + context; }

  // Empty unless a thrower fills it.
  std::string context;
};

}  // namespace error

// The time series database.
namespace tsdb {

struct error_generic : error::Exception {
  explicit error_generic(std::string text);
  std::string message() const override;

  std::string description;
};

// clang-format off
struct error_io           : error_generic  { using error_generic::error_generic; };
struct error_open         : error_io       { using error_io::error_io; };
struct error_read         : error_io       { using error_io::error_io; };
struct error_seek         : error_io       { using error_io::error_io; };
struct error_toobig       : error_io       { using error_io::error_io; };
struct error_internal     : error_generic  { using error_generic::error_generic; };
struct error_dbtype       : error_internal { using error_internal::error_internal; };
struct error_dcalloc      : error_internal { using error_internal::error_internal; };
struct error_unref_used   : error_internal { using error_internal::error_internal; };
struct error_consistency  : error_generic  { using error_generic::error_generic; };
struct error_dbnospace    : error_generic  { using error_generic::error_generic; };
struct error_dbspacewrap  : error_generic  { using error_generic::error_generic; };
// clang-format on

}  // namespace tsdb

// The meta database.
namespace mdb {

struct error_generic : error::Exception {
  explicit error_generic(std::string text);
  std::string message() const override;

  std::string description;
};

// clang-format off
struct error_io             : error_generic     { using error_generic::error_generic; };
struct error_open           : error_io          { using error_io::error_io; };
struct error_seek           : error_io          { using error_io::error_io; };
struct error_internal       : error_generic     { using error_generic::error_generic; };
struct error_range          : error_internal    { using error_internal::error_internal; };
struct error_consistency    : error_generic     { using error_generic::error_generic; };
struct error_fubar          : error_consistency { using error_consistency::error_consistency; };
struct error_need_repair    : error_consistency { using error_consistency::error_consistency; };
struct error_unsupported    : error_consistency { using error_consistency::error_consistency; };
struct error_bigobj         : error_generic     { using error_generic::error_generic; };
struct error_dbnospace      : error_generic     { using error_generic::error_generic; };
struct error_index_conflict : error_generic     { using error_generic::error_generic; };
struct error_index_noentry  : error_generic     { using error_generic::error_generic; };
struct error_nullobj        : error_generic     { using error_generic::error_generic; };
struct error_transact       : error_generic     { using error_generic::error_generic; };
// clang-format on

}  // namespace mdb
