#include "host/preload_path.hpp"

namespace kxsim {
namespace {

bool is_one_word(const std::string& path) { return path.find_first_of(" :$") == path.npos; }

}  // namespace

PreloadPath::PreloadPath(const std::filesystem::path& library) : text_(library) {
    if (is_one_word(text_)) {
        return;
    }
    link_directory_ = make_scratch();
    if (!is_one_word(link_directory_->path())) {  // TMPDIR is not better
        link_directory_ = make_scratch("/tmp");
    }
    const std::filesystem::path link = link_directory_->path() / library.filename();
    std::filesystem::create_symlink(library, link);
    text_ = link;
}

}  // namespace kxsim
