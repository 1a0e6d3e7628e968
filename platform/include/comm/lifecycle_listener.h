// Hears of the coming and going of something that has a life.
#pragma once

namespace comm {

class LifecycleListener {
public:
    virtual ~LifecycleListener() = default;
    virtual void alive() = 0;
    virtual void dead() = 0;
};

}  // namespace comm
