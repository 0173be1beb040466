#include "models/modelled_file.hpp"

namespace kxsim::models {
namespace {

constexpr ModelledFile kModelledFiles[] = {
    {is_config_file, read_config_file, write_config_file},
    {is_control_file, nullptr, write_control_file},
};

}  // namespace

const ModelledFile* find_model(std::string_view path) {
    for (const ModelledFile& model : kModelledFiles) {
        if (model.is_one(path)) {
            return &model;
        }
    }
    return nullptr;
}

}  // namespace kxsim::models
