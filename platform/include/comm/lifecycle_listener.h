// Is told when something starts and ceases to exist.
#pragma once

namespace comm {

class LifecycleListener {
public:
    virtual ~LifecycleListener() = default;
    virtual void alive() = 0;
    virtual void dead() = 0;
};

}  // namespace comm
