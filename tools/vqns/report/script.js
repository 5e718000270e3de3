"use strict";
{
  const root = document.documentElement, byId = id => document.getElementById(id);
  const before = byId("before-player"), after = byId("after-player");
  const choices = new Map([[before, byId("choose-before")], [after, byId("choose-after")]]);
  const play = byId("play"), clock = byId("clock"), seekers = document.querySelectorAll(".seek");
  const duration = Number(root.dataset.duration);
  const together = 0.03;  // seconds: closer positions count as one
  let current = after;    // the player that sounds, or would

  const other = player => player === before ? after : before;

  const time = seconds => {
    const tenths = Math.round(seconds * 10), whole = Math.floor(tenths / 10);
    const two = n => String(n).padStart(2, "0");
    const hours = Math.floor(whole / 3600), minutes = Math.floor(whole / 60) % 60;
    return (hours ? `${hours}:${two(minutes)}` : minutes) + `:${two(whole % 60)}.${tenths % 10}`;
  };

  const show = () => {
    const at = Math.min(current.currentTime, duration);
    const text = `${time(at)} / ${time(duration)}`;
    for (const seeker of seekers) seeker.value = at;
    if (clock.textContent !== text) {
      clock.textContent = text;
      for (const seeker of seekers) seeker.setAttribute("aria-valuetext", time(at));
    }
    play.textContent = current.paused ? "Play" : "Pause";
    choices.get(current).checked = true;
  };

  const follow = () => {
    show();
    if (!current.paused) requestAnimationFrame(follow);
  };

  const move = (player, at) => {
    if (Math.abs(player.currentTime - at) > together) player.currentTime = at;
  };

  // The other sound takes over where this one is.
  const choose = player => {
    if (player === current) return;
    const left = current;
    current = player;
    move(player, left.currentTime);
    if (!left.paused) {
      const silence = () => {
        if (left !== current) left.pause();
      };
      if (player.paused) player.play().then(silence, silence);
      else silence();
    }
    show();
  };

  for (const player of [before, after]) {
    player.addEventListener("play", () => {
      choose(player);
      follow();
    });
    player.addEventListener("pause", () => {
      if (player === current) move(other(player), player.currentTime);
      show();
    });
    player.addEventListener("seeking", () => {
      move(other(player), player.currentTime);
      show();
    });
    choices.get(player).addEventListener("change", () => choose(player));
  }
  for (const seeker of seekers) {
    seeker.addEventListener("input", () => {
      const at = Number(seeker.value);
      for (const player of [before, after]) player.currentTime = at;
      show();
    });
  }
  play.addEventListener("click", () => current.paused ? current.play() : current.pause());

  root.classList.add("live");
  byId("transport").hidden = false;
  show();
}
