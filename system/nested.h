#pragma once

// Runs that nest each live on the program's stack: so many of one kind are let in, and then refused with a message.
inline constexpr int KPE_MOST_NESTED = 200;

// Counts a nested run for as long as it lives.
class Nested {
public:
    explicit Nested(int& depth) : depth_(depth) { ++depth_; }
    ~Nested() { --depth_; }
    Nested(const Nested&) = delete;
    Nested& operator=(const Nested&) = delete;

private:
    int& depth_;
};
