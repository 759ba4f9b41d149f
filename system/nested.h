#pragma once

// Each nested run of a macro, a command file or screen mode takes some of the program's stack. So many of one kind may
// nest; a further one is refused with a message.
inline constexpr int KPE_MOST_NESTED = 200;

// Counts a nested run in depth for as long as the object lives.
class Nested {
public:
    explicit Nested(int& depth) : depth_(depth) { ++depth_; }
    ~Nested() { --depth_; }
    Nested(const Nested&) = delete;
    Nested& operator=(const Nested&) = delete;

private:
    int& depth_;
};
