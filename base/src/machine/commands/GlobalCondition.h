#pragma once

namespace tolm {

class Communicator;

// A boolean every process agrees on, so that all ranks take the same branch of a collective
// code path. Constructed collectively: every rank constructs it at the same point with the
// same mode. A serial process keeps its own value and communicates nothing.
class GlobalCondition {
public:
    enum ModeEnum {
        ON_ALL = 0,            // true when true on every rank
        ON_ANY = 1,            // true when true on at least one rank
        ON_MASTER = 2,         // the master's value
        ON_ALL_INVARIANT = 3,  // the local value, promised equal everywhere (checked on small
                               // jobs while developer error checking is on)
    };

    GlobalCondition(bool condition, ModeEnum mode);
    // The same decision made on `over`, a communicator of every process (a duplicate of the
    // global one, which the form above uses).
    GlobalCondition(bool condition, ModeEnum mode, Communicator& over);
    virtual ~GlobalCondition() = default;
    GlobalCondition(const GlobalCondition&) = default;
    GlobalCondition& operator=(const GlobalCondition&) = default;

    operator bool() const { return _value; }  // NOLINT(google-explicit-constructor)

    // Jobs of at least this many processes do not check ON_ALL_INVARIANT.
    static constexpr unsigned int invariantCheckLimit = 13;

private:
    static bool computeCollectiveCondition(bool condition, ModeEnum mode, Communicator* over);

    bool _value;
};

}  // namespace tolm
