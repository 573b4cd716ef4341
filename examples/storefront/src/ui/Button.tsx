export function Button(props: { label: string }) {
  return <button>{props.label}</button>;
}

export function IconButton(props: { icon: string }) {
  return <Button label={props.icon} />;
}
