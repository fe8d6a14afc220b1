# A Homebrew formula, to be put into a tap. A release fills in url and sha256.
class Ombrix < Formula
  desc "Software-metering agent"
  homepage "https://ombrix.invalid"
  url "https://ombrix.invalid/ombrix-6.2.1.tar.gz"
  sha256 "0000000000000000000000000000000000000000000000000000000000000000"

  depends_on "cmake" => :build
  depends_on macos: :monterey

  def install
    system "cmake", "-S", ".", "-B", "build", "-DCMAKE_INSTALL_SYSCONFDIR=#{etc}",
           "-DCMAKE_INSTALL_LOCALSTATEDIR=#{var}", *std_cmake_args
    system "cmake", "--build", "build"
    # Not by cmake --install: only Homebrew's own way keeps a changed configuration.
    sbin.install "build/Ombrix"
    (etc/"ombrix").install "build/Packaging/velkagent.config"
    pkgshare.install "Packaging/velkagent.rng"
    man5.install Dir["Documentation/man/*.5"]
    man8.install "Documentation/man/Ombrix.8"
    bash_completion.install "Packaging/completion/ombrix.bash" => "Ombrix"
    zsh_completion.install "Packaging/completion/_Ombrix"
    fish_completion.install "Packaging/completion/Ombrix.fish"
    (var/"lib/ombrix").mkpath
    (var/"log/ombrix").mkpath
  end

  # The path after -c loses its capitals and dashes; Homebrew's prefixes have neither.
  service do
    run [opt_sbin/"Ombrix", "-c", etc/"ombrix/velkagent.config"]
    keep_alive successful_exit: false
    process_type :background
    require_root true
    working_dir var/"lib/ombrix"
  end

  test do
    assert_equal "6.2.1\n", shell_output("#{sbin}/Ombrix -vnum")
  end
end
