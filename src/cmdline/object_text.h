#pragma once
// zp::ObjectText: a forgiving reader of one flat {"key":value,...} text, looked up by key.

#include <string>
#include <utility>
#include <vector>

namespace zp {

class ObjectText {
  public:
    using Member = std::pair<std::string, std::string>;

    // Replaces the members with those of `text`. Never fails: a text with no recognisable
    // token becomes one token, which pairs with nothing.
    bool parse(const std::string& text);

    // The first member with this key wins; nested objects and arrays come back as raw text.
    std::string get_string(const std::string& key, const std::string& def) const;
    // True only for the exact value "true".
    bool get_bool(const std::string& key, bool def) const;

    const std::vector<Member>& members() const { return members_; }
    void clear() { members_.clear(); }

  private:
    const Member* find(const std::string& key) const;

    std::vector<Member> members_;
};

}  // namespace zp
