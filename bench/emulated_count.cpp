// A plugin of qemu-user that counts the instructions of the emulated program, in all its threads, in a file of eight bytes.
// Usage: qemu-aarch64 -plugin libemulated_count.so,count=FILE PROGRAM
#include <fcntl.h>
#include <sys/mman.h>
#include <unistd.h>

#include <cstddef>
#include <cstdint>
#include <cstring>

// The part of the emulator's interface that is used here; Debian does not package its header.
extern "C" {
struct qemu_plugin_tb;  // instructions that are executed one after the other
void qemu_plugin_register_vcpu_tb_trans_cb(std::uint64_t id, void (*translated)(std::uint64_t, qemu_plugin_tb*));
void qemu_plugin_register_vcpu_tb_exec_cb(qemu_plugin_tb* block, void (*executed)(unsigned, void*), int flags, void* data);
std::size_t qemu_plugin_tb_n_insns(const qemu_plugin_tb* block);

[[gnu::visibility("default")]] int qemu_plugin_version = 1;
[[gnu::visibility("default")]] int qemu_plugin_install(std::uint64_t id, const void* info, int argc, char** argv);
}

namespace {

std::uint64_t* count = nullptr;

void executed(unsigned /*cpu*/, void* instructions) {
    __atomic_fetch_add(count, reinterpret_cast<std::uintptr_t>(instructions), __ATOMIC_RELAXED);
}

void translated(std::uint64_t /*id*/, qemu_plugin_tb* block) {
    constexpr int readsNoRegisters = 0;
    qemu_plugin_register_vcpu_tb_exec_cb(block, &executed, readsNoRegisters,
                                         reinterpret_cast<void*>(qemu_plugin_tb_n_insns(block)));
}

}  // namespace

int qemu_plugin_install(std::uint64_t id, const void* /*info*/, int argc, char** argv) {
    constexpr char option[] = "count=";
    if (argc != 1 || std::strncmp(argv[0], option, sizeof option - 1) != 0) return 1;
    const int file = ::open(argv[0] + sizeof option - 1, O_RDWR | O_CREAT | O_TRUNC, 0600);
    if (file < 0 || ::ftruncate(file, sizeof *count) != 0) return 1;
    void* const page = ::mmap(nullptr, sizeof *count, PROT_READ | PROT_WRITE, MAP_SHARED, file, 0);
    ::close(file);
    if (page == MAP_FAILED) return 1;
    count = static_cast<std::uint64_t*>(page);
    qemu_plugin_register_vcpu_tb_trans_cb(id, &translated);
    return 0;
}
