// A host program built against an installed library only: the public factory, nothing internal.
#include <korvelplayer/PlayerFactory.h>

#include <cstdio>
#include <string>

int main() {
    KorvelPlayer::ScopedRuntime runtime;
    KorvelPlayer::IPlayer* player = KorvelPlayer::CreatePlayer();
    if (player == nullptr) return 1;
    std::string version;
    std::string text;
    player->GetVersion(version);
    const bool known = player->GetErrorText(-1004, text);
    std::printf("%s\n%s\n", version.c_str(), known ? text.c_str() : "(unknown code)");
    const int result = KorvelPlayer::DeinitializePlayer(player);
    delete player;
    return result == 0 ? 0 : 2;
}
