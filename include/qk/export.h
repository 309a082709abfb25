// What the component's libraries export. They are built with every symbol hidden; the public
// declarations carry QK_API, so a host links against the interface and nothing behind it.
#pragma once

#if defined(__GNUC__) || defined(__clang__)
#define QK_API __attribute__((visibility("default")))
#else
#define QK_API
#endif

// How each public class is copied, stated in the class. An automation object — a builder with its
// cursor and building state, a late-bound object whose identity its holders share — is moved,
// never copied; a late-bound object is not even moved (it lives behind a shared pointer); a value
// is copied and moved.
#define QK_MOVE_ONLY(Class)                \
  Class(const Class&) = delete;            \
  Class& operator=(const Class&) = delete; \
  Class(Class&&) = default;                \
  Class& operator=(Class&&) = default
#define QK_NOT_COPIED(Class)               \
  Class(const Class&) = delete;            \
  Class& operator=(const Class&) = delete; \
  Class(Class&&) = delete;                 \
  Class& operator=(Class&&) = delete
#define QK_COPYABLE(Class)                  \
  Class(const Class&) = default;            \
  Class& operator=(const Class&) = default; \
  Class(Class&&) = default;                 \
  Class& operator=(Class&&) = default
