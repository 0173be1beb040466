// The data of a builder about its host.
#pragma once

#include <kxsim/host.hpp>

#include "host/scratch.hpp"
#include "host/shared_record.hpp"
#include "host/tree.hpp"
#include "state/adapters.hpp"
#include "state/network.hpp"
#include "state/session.hpp"

namespace kxsim {

// The directories of a session, created when they are missing.
[[nodiscard]] std::filesystem::path session_directory(const std::filesystem::path& wanted);

struct Host::State {
    explicit State(const std::filesystem::path& wanted)
        : root(session_directory(wanted)),
          tree(root),
          session(root + state::kSessionFile),
          network(root + state::kNetworkFile),
          adapters(root + state::kAdaptersFile) {}

    // In a directory that is removed with the host.
    explicit State(std::unique_ptr<kx::LockedDirectory> own) : State(own->path()) {
        own_directory = std::move(own);
    }

    std::unique_ptr<kx::LockedDirectory> own_directory;
    std::string root;
    Tree tree;
    SharedRecord<state::Session> session;
    SharedRecord<state::Network> network;
    SharedRecord<state::Adapters> adapters;
};

// The record of an interface; throws std::invalid_argument when there is none.
[[nodiscard]] state::Interface& interface_record(
    state::Network& network, std::string_view interface_name);

// Set the answers of an interface's driver to those of nic.
void write_nic(state::Network& network, state::Interface& record, const Nic& nic);

// Copy a text into a field of a record; throws std::invalid_argument when it does not fit.
void copy_field(char* field, std::size_t size, std::string_view text, const char* what);

template <std::size_t kSize>
void copy_field(char (&field)[kSize], std::string_view text, const char* what) {
    copy_field(field, kSize, text, what);
}

}  // namespace kxsim
