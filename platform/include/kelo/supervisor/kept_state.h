// State that outlives the process: the supervisor keeps it and gives it to the next process of the same service.
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <span>
#include <string>
#include <unordered_map>
#include <utility>
#include <vector>

#include "kelo/std/uuid.h"
#include "kelo/supervisor/notifier.h"
#include "util/byte_buffer.h"

namespace kelo::supervisor {

// Records by id, in memory that belongs to no process. A change is complete when the call returns: from then on, the next process
// will find it, however this one ends. If it ends within the call, the next one finds the state before or after the change. A
// resource. Thread: one at a time.
class KeptState {
public:
    struct Form {
        std::string name;           // by which the supervisor knows it; without ':'
        std::uint32_t version = 1;  // of what the records contain
        std::size_t bytes = 0;      // of all records, at most
    };

    // What the supervisor has kept for this process, or a new one that it keeps from now on. Null, and nothing else happens, if
    // there is no supervisor. What is damaged, or has another form, is dropped with a log line. Thread: one that may wait.
    static std::unique_ptr<KeptState> open(const Notifier& notifier, const Form& form);
    // The state in a memory file, which it owns from now on. Null, with the reason in `why`, if it is damaged or has another
    // form.
    static std::unique_ptr<KeptState> adopt(int descriptor, const Form& form, std::string& why);
    // A new one; null, with the reason in `why`, if the system cannot make it.
    static std::unique_ptr<KeptState> create(const Form& form, std::string& why);

    ~KeptState();
    KeptState(const KeptState&) = delete;
    KeptState& operator=(const KeptState&) = delete;

    // Calls `visit(id, bytes)` for each record, in the order in which the ids were first put.
    void visit(const std::function<void(const std::UUID& id, std::span<const std::uint8_t> bytes)>& visit) const;
    // Each returns whether the state is now as asked; if not, it is unchanged, and `errno` says why.
    bool put(const std::UUID& id, std::span<const std::uint8_t> bytes);
    bool erase(const std::UUID& id);

    // Whether much of the memory is taken by records that have been replaced. `tidy` gives it back; it takes as long as putting
    // all records again.
    bool isWasteful() const noexcept;
    void tidy();

    // The memory file, for whoever is to keep it.
    int descriptor() const noexcept { return file_; }

private:
    enum class Kind : std::uint32_t { put = 1, erase = 2 };
    struct Place {
        std::uint64_t order;  // of the first put
        std::uint64_t at;     // of the bytes, in the half
        std::size_t size;
    };
    using Placed = std::pair<std::UUID, Place>;

    KeptState(int file, const Form& form, std::uint64_t half);
    std::uint64_t begin() const noexcept { return epoch_ % 2 * half_; }
    bool takeOver(std::string& why);
    bool replay(std::span<const std::uint8_t> half);
    bool append(Kind kind, const std::UUID& id, std::span<const std::uint8_t> bytes);
    void apply(Kind kind, const std::UUID& id, std::uint64_t at, std::size_t size);
    std::vector<Placed> inOrder() const;
    bool writeRecord(std::uint64_t half, std::uint64_t epoch, std::uint64_t at, Kind kind, const std::UUID& id,
                     std::span<const std::uint8_t> bytes);
    bool writeHeader(std::uint64_t epoch, std::uint64_t used);
    bool writeAt(std::uint64_t at, std::span<const std::uint8_t> bytes) const;
    bool readAt(std::uint64_t at, std::span<std::uint8_t> bytes) const;
    void release(std::uint64_t half) const;

    const int file_;  // owned
    const std::uint32_t version_;
    const std::uint64_t half_;  // bytes of each half
    const std::uint64_t most_;  // bytes of all records
    std::uint64_t epoch_ = 1;   // its lowest bit says which half is in use
    std::uint64_t used_ = 0;    // bytes of that half
    std::uint64_t live_ = 0;    // those of records that have not been replaced
    std::uint64_t nextOrder_ = 0;
    std::unordered_map<std::UUID, Place> places_;
    util::ByteBufferWriter record_;  // being written
};

}  // namespace kelo::supervisor
