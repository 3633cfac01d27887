#pragma once

#include <string>

namespace quorvane {

// Whether an account has a password that a login (and so PAM's common-auth) could accept.
enum class AccountPassword {
  usable,    // a password hash is set
  unusable,  // locked ("!…", "*") or empty: a password prompt can never succeed
  unknown,   // the shadow entry cannot be read (only root may read it) or does not exist
};

// Reads `user`'s shadow entry. Root accounts in containers and fresh virtual machines are often
// locked: with PAM's password check they could never verify their presence.
AccountPassword accountPassword(const std::string& user);

}  // namespace quorvane
